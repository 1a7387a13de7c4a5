#pragma once

#include "CoRgbaColor.h"
#include "GeRectangle.h"
#include "IxScanline.h"
#include "OPtr.h"
#include "RCBase.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class IpScanlinePipe;
class IpSourceNode;
using IpScanlinePipePtr = RCShdPtr<IpScanlinePipe>;

// A node of a graph that processes an image row by row. Each node takes rows from its inputs
// and gives rows to its consumers; the graph runs once, on one thread, driven by its
// IpDestNode.
//
// Rows flow in steps ("ticks"): at tick t the sources read row t, and a node hands out its row
// y at tick y + latency, its latency being the largest of its inputs' plus its output delay.
// The delay of a node that reads `marginY` rows around each row is `marginY`; a node that needs
// every row before giving any sets a larger one. Each node keeps only the rows its consumers
// still read, in a ring made once per run: nothing is allocated per row.
//
// Regions: a node is asked for a destination region, the union of what its consumers need, and
// needs of its inputs that region grown by its margins (its source region).
class VN_EXPORT IpScanlinePipe : public RCBase<int> {
public:
    using Color = CoRgbaColorTyped<float>;

    ~IpScanlinePipe() override;
    // The kind of node, for diagnostics and for walking a graph.
    virtual char const* getName() const = 0;

    int getNbInputs() const noexcept { return static_cast<int>(_inputs.size()); }
    IpScanlinePipePtr const& getInput(int i) const;
    // The sources under this node, each once, in the order they are first reached.
    Vector<IpSourceNode*> getAllInputs() const;

    int getMarginX() const noexcept { return _marginX; }
    int getMarginY() const noexcept { return _marginY; }
    int getOutputDelay() const noexcept { return _outputDelay; }
    void setOutputDelay(int delay) noexcept { _outputDelay = delay; }
    int getLatency() const noexcept { return _latency; }
    int getConsumerCount() const noexcept { return _consumers; }
    void setConsumerCount(int n) noexcept { _consumers = n; }

    GeRectangle<int> const& getDstRegion() const noexcept { return _dstRegion; }
    // The destination region grown by the margins.
    GeRectangle<int> getSrcRegion() const;
    // Called by the graph once its consumers' needs are known.
    virtual void setDstRegion(GeRectangle<int> const& region);
    // The fill colour of the result: what it holds outside every region.
    virtual Color getFillColor() const = 0;
    // What the image can show: outside this region every row of the result holds the fill
    // colour. By default the inputs' regions grown by the margins.
    virtual GeRectangle<int> getImageRegion() const;
    // Coordinates stay within this bound, which stands for no bound at all.
    static constexpr int kUnbounded = 1 << 30;
    // r grown by x across and y down, within kUnbounded.
    static GeRectangle<int> grow(GeRectangle<int> const& r, long long x, long long y);

    // Which rows the node hands out; a node gives one kind.
    virtual bool givesAlphaRows() const noexcept { return false; }
    virtual bool givesColorRows() const noexcept { return false; }
    // Row y of the result, while the consumers still read it.
    IxScanline<float> const& getAlphaScanline(int y) const;
    IxScanline<Color> const& getColorScanline(int y) const;

    // The run. initializeProcessing prepares the rows for the consumers; tick does the work of
    // one step; finishProcessing lets go of what the run held.
    virtual void initializeProcessing();
    virtual void tick(int t) = 0;
    virtual void finishProcessing();
    // True when the node reads an input row only at the tick it is handed out (it keeps what
    // it needs of it), so the input keeps a single row for it.
    virtual bool readsInputsOnArrival() const noexcept { return false; }
    // The tile the rows end in, when the destination is the only consumer: a node may then
    // compute its rows straight into it. Null to stop.
    virtual void setDirectTarget(IxWriteGuard const* target) noexcept { (void)target; }

    // Raises PxEx::ExRequestCancelled when the request running the graph is cancelled.
    static void checkCancelled();

protected:
    IpScanlinePipe() noexcept = default;
    IpScanlinePipe(Vector<IpScanlinePipePtr> inputs, int marginX, int marginY);
    virtual IxScanline<float> const* findAlphaRow(int y) const;
    virtual IxScanline<Color> const* findColorRow(int y) const;

    Vector<IpScanlinePipePtr> _inputs;
    GeRectangle<int> _dstRegion;
    int _marginX = 0;
    int _marginY = 0;
    int _outputDelay = 0;
    int _consumers = 0;
    int _latency = 0;
    // Rows the consumers read after one is handed out, plus one: the ring's size.
    int _nbKeptRows = 0;

private:
    friend class IpDestNode;
    GeRectangle<int> _requested;
};

// A node that hands out rows of T, computed one at a time into its ring. Instantiated for float
// and CoRgbaColorTyped<float>.
template <class T>
class VN_EXPORT IpScanlinePipeOutput : public IpScanlinePipe {
public:
    ~IpScanlinePipeOutput() override;
    bool givesAlphaRows() const noexcept override;
    bool givesColorRows() const noexcept override;
    // Row y of the result.
    virtual IxScanline<T> const& getOutputScanline(int y) const;

    void initializeProcessing() override;
    // Computes row tick - latency when it lies in the destination region.
    void tick(int t) override;
    void finishProcessing() override;
    void setDirectTarget(IxWriteGuard const* target) noexcept override { _direct = target; }

protected:
    IpScanlinePipeOutput() noexcept = default;
    IpScanlinePipeOutput(Vector<IpScanlinePipePtr> inputs, int marginX, int marginY);
    // Fills out, which spans the destination region's columns, with row y.
    virtual void computeScanline(int y, IxScanline<T>& out) = 0;

    IxScanline<float> const* findAlphaRow(int y) const override;
    IxScanline<Color> const* findColorRow(int y) const override;

private:
    template <class U>
    IxScanline<U> const* findRowOf(int y) const;

    Vector<OPtr<IxScanline<T>>> _rows;
    Vector<int> _rowOf; // which row each slot holds, -1 for none
    IxWriteGuard const* _direct = nullptr;
    Vector<OPtr<IxScanline<T>>> _views; // over rows of _direct
    Vector<char> _isView;
};

// One input giving rows of T; the result has the input's fill colour unless overridden.
template <class T>
class VN_EXPORT IpScanlinePipe1In : public IpScanlinePipeOutput<T> {
public:
    ~IpScanlinePipe1In() override;
    CoRgbaColorTyped<float> getFillColor() const override;

protected:
    IpScanlinePipe1In(IpScanlinePipePtr const& input, int marginX, int marginY);
    IxScanline<T> const& getInputScanline(int y) const;
};

// Two inputs giving rows of T, handed out at the same tick.
template <class T>
class VN_EXPORT IpScanlinePipe2In : public IpScanlinePipeOutput<T> {
public:
    ~IpScanlinePipe2In() override;

protected:
    IpScanlinePipe2In(IpScanlinePipePtr const& a, IpScanlinePipePtr const& b);
    IxScanline<T> const& getInputScanline(int i, int y) const;
};

// Reads the rows of the source tiles, padded with the first tile's fill colour: alpha rows
// for alpha tiles, colour rows for the others. A row that one tile of the rows' format covers
// is handed out in place, not copied.
class VN_EXPORT IpSourceNode final : public IpScanlinePipe {
public:
    explicit IpSourceNode(IxPixelFormat::Comps comps);
    ~IpSourceNode() override;
    char const* getName() const override { return "Source"; }
    IxPixelFormat::Comps getComps() const noexcept { return _comps; }
    bool givesAlphaRows() const noexcept override { return _comps == IxPixelFormat::ALPHA; }
    bool givesColorRows() const noexcept override { return _comps != IxPixelFormat::ALPHA; }
    Color getFillColor() const override;
    // The region outside which the source's rows are its fill colour, for a caller that knows
    // it (the image's region of definition); a graph bounds its work by it. Unbounded if not set.
    void setImageRegion(GeRectangle<int> const& region) noexcept { _imageRegion = region; }
    GeRectangle<int> getImageRegion() const override { return _imageRegion; }

    // The tiles to read for the next run; they must outlive it.
    void setSources(Vector<IxReadGuard> const* sources) noexcept { _sources = sources; }
    // Whether rows may be handed out in place; not when the result is written over the sources.
    void setRowsInPlace(bool inPlace) noexcept { _inPlace = inPlace; }
    void initializeProcessing() override;
    void tick(int t) override;
    void finishProcessing() override;

protected:
    IxScanline<float> const* findAlphaRow(int y) const override;
    IxScanline<Color> const* findColorRow(int y) const override;

private:
    template <class T>
    struct Ring {
        Vector<OPtr<IxScanline<T>>> rows;
        Vector<int> rowOf;
        // Lines over the tile itself, used instead of a copy when one tile of the line's
        // format covers the row.
        Vector<OPtr<IxScanline<T>>> views;
        Vector<char> isView;
    };
    IxPixelFormat::Comps _comps;
    GeRectangle<int> _imageRegion{-kUnbounded, kUnbounded, -kUnbounded, kUnbounded};
    Vector<IxReadGuard> const* _sources = nullptr;
    bool _inPlace = true;
    Ring<float> _alpha;
    Ring<Color> _color;
};

// The end of a graph: writes its input's rows into a tile. Setting its destination region
// lays out the whole graph: regions, delays, the rows each node keeps.
class VN_EXPORT IpDestNode final : public IpScanlinePipe {
public:
    explicit IpDestNode(IpScanlinePipePtr const& input);
    ~IpDestNode() override;
    char const* getName() const override { return "Dest"; }
    Color getFillColor() const override;
    void setDstRegion(GeRectangle<int> const& region) override;

    // Runs the graph: the sources read `sources`, and the destination region of dst gets the
    // result, its fill colour the result's. Checks for cancellation between rows.
    void process(IxWriteGuard& dst, Vector<IxReadGuard> const& sources);
    void tick(int t) override;

private:
    Vector<IpScanlinePipe*> _order; // producers before consumers, this one last
    IxWriteGuard* _target = nullptr;
};

extern template class IpScanlinePipeOutput<float>;
extern template class IpScanlinePipeOutput<CoRgbaColorTyped<float>>;
extern template class IpScanlinePipe1In<float>;
extern template class IpScanlinePipe2In<float>;

} // namespace Vn
