#pragma once

#include "IxTile.h"
#include "TestPerf.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

// A measurement program over image tiles. It makes its tiles at initialize from the options
// "width" and "height" (pixels, 1 to 16384, 1024 by default) and "comps" ("ALPHA" or "RGBA",
// "ALPHA" by default), all of one region and float pixels, holding a test matte: soft and hard
// edges, holes and thin lines. The last tile is the one written.
class VN_EXPORT IpTestPerf : public TestPerfBase {
public:
    IpTestPerf(std::string name, int nbTiles);
    ~IpTestPerf() override;
    int getNbTiles() const noexcept { return _nbTiles; }
    IxTile const& getTile(int i) const;
    void cleanUp() override;
    void initialize(Options const& options) override;
    // The usage of the tile options, which every such program takes.
    static std::string getTileUsage();

private:
    int _nbTiles;
    Vector<IxTile> _tiles;
};

} // namespace Vn
