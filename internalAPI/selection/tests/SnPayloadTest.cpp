#include "ExBase.h"
#include "PiDndTool.h"
#include "PiDndToolPreset.h"
#include "PiFileDndInterface.h"
#include "PiNode.h"
#include "PiNodeDndInterface.h"
#include "PiTool.h"
#include "SelectionStarted.h"
#include "SnItemPayloads.h"
#include "SnSelection.h"
#include "TmKeyframe.h"
#include "TmTimeCurve.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

using namespace Vn;

namespace {

class Protocol final : public PiToolProtocolImp {
public:
    Protocol() : PiToolProtocolImp("Blur", "Filter", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.produces("Output", PiSocketType::IMAGE);
    }
};
RCShdPtr<PiTool const> makeTool() {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(new Protocol)));
}

// A dragged thing the application made, editable.
class Dropped final : public PiNodeDndInterface {
public:
    RCShdPtr<PiTool const> getTool() const override { return {}; }
    std::string getName() const override { return "dropped"; }
    std::string getPath() const override { return "/dropped"; }
    bool isADisplayModifierTool() const override { return false; }
    RCShdPtr<PiNode> addNode(RCShdPtr<PiGroupNode> const&, std::string const&) const override {
        return {};
    }
};

class StillFile final : public PiFileDndInterface {
public:
    std::string getName() const override { return "plate.exr"; }
    std::string getCompositionName() const override { return {}; }
    std::string getFileFormatOptions() const override { return {}; }
    bool getUnpremultiplyState() const override { return false; }
    CoRgbColorTyped<float> getUnpremultiplyBgColor() const override { return {}; }
    CoMotionVectorInfo getMotionVectorInfo() const override { return {}; }
    std::string getPath() const override { return "/plates/plate.exr"; }
    std::string getFileExtension() const override { return "exr"; }
    bool isFormatSupported() const override { return true; }
    bool isFileBased() const override { return true; }
    std::string getToolName() const override { return {}; }
    RCShdPtr<PiNodeDndInterface const> getTool(bool) const override { return {}; }
    bool willToolAcceptFile(std::string const&, std::string const&, int, bool) const override {
        return false;
    }
    bool willToolAcceptFile(std::string const&, int, bool) const override { return false; }
    Rational getPixelRatio() const override { return Rational(1); }
    Rational getRate() const override { return Rational(24); }
    std::uint32_t getDepth() const override { return 16; }
    DtTimeIndex getStartTime() const override { return DtTimeIndex(1001); }
    std::string getSource() const override { return {}; }
};

std::string dumped(SnItem const& item) {
    std::ostringstream os;
    os << item;
    return os.str();
}

// One item type: two items of distinct payloads that are alike in content, a way to make an
// item of a given payload anew, an item of a null payload for pointers, and the predicate.
struct Kind {
    std::string name;
    SnSelection::ItemPtr first, second;
    std::function<SnSelection::ItemPtr()> firstAgain;
    SnSelection::ItemPtr null;
    SnSelection::Predicate predicate;
};

template <class T>
constexpr bool isPointer = false;
template <class U>
constexpr bool isPointer<RCShdPtr<U>> = true;

template <class T>
Kind kind(std::string name, T const& a, T const& b) {
    using C = SnItemConvert<T>;
    SnSelection::ItemPtr null;
    if constexpr (isPointer<T>)
        null = C::createItem(T());
    return Kind{std::move(name),
                C::createItem(a),
                C::createItem(b),
                [a] { return SnSelection::ItemPtr(C::createItem(a)); },
                null,
                C::getPredicate()};
}

// Every payload type, each with two objects of equal content (texts: two texts).
std::vector<Kind> allKinds() {
    RCShdPtr<PiTool const> const tool1 = makeTool(), tool2 = makeTool();
    RCShdPtr<PiNodeDndInterface> const dropped1(new Dropped), dropped2(new Dropped);
    RCShdPtr<PiFileDndInterface const> const file1(new StillFile), file2(new StillFile);
    return {
        kind<std::string>("string", "Blur", "Grade"),
        kind<LiString>("LiString", LiString("Blur"), LiString("Grade")),
        kind<RCShdPtr<PiTool const>>("tool", tool1, tool2),
        kind<RCShdPtr<PiDndTool const>>("dnd tool", PiDndTool::create(tool1),
                                        PiDndTool::create(tool1)),
        kind<RCShdPtr<PiDndToolPreset const>>("dnd preset", PiDndToolPreset::create("/p.qnpreset"),
                                              PiDndToolPreset::create("/p.qnpreset")),
        kind<RCShdPtr<PiFileDndInterface const>>("file", file1, file2),
        kind<RCShdPtr<PiNodeDndInterface const>>("const dnd", PiDndTool::create(tool1),
                                                 PiDndToolPreset::create("/p.qnpreset")),
        kind<RCShdPtr<PiNodeDndInterface>>("dnd", dropped1, dropped2),
        kind<RCShdPtr<TmKeyframe>>("key", TmKeyframe::create(1, 2), TmKeyframe::create(1, 2)),
        kind<RCShdPtr<TmTimeCurve>>("curve", TmTimeCurve::create(), TmTimeCurve::create()),
        kind<RCShdPtr<SnSelection const>>("const selection", SnSelection::create(),
                                          SnSelection::create()),
        kind<RCShdPtr<SnSelection>>("selection", SnSelection::create(), SnSelection::create()),
    };
}

} // namespace

using SnPayloads = SelectionStarted;

// Texts are equal by their text, pointers by identity: two objects alike in content are two
// things. An item of one type is never equal to an item of another.
TEST_F(SnPayloads, EqualityIgnoringParts) {
    std::vector<Kind> const kinds = allKinds();
    for (Kind const& k : kinds) {
        EXPECT_TRUE(k.first->isEqualIgnoreParts(*k.firstAgain())) << k.name;
        EXPECT_TRUE(k.first->isEqual(*k.firstAgain())) << k.name;
        EXPECT_FALSE(k.first->isEqualIgnoreParts(*k.second)) << k.name;
        for (Kind const& other : kinds) {
            if (&other != &k) {
                EXPECT_FALSE(k.first->isEqualIgnoreParts(*other.first)) << k.name << other.name;
            }
        }
    }
    // The same text, as a plain string and as the system's string, names two things.
    auto plain = SnItemConvert<std::string>::createItem("Blur");
    auto own = SnItemConvert<LiString>::createItem(LiString(std::string("Blur")));
    EXPECT_FALSE(plain->isEqualIgnoreParts(*own));
    EXPECT_TRUE(own->isEqualIgnoreParts(*SnItemConvert<LiString>::createItem(LiString("Blur"))));
    // The same object through two pointer types names two things too.
    auto tool = makeTool();
    auto dnd = PiDndTool::create(tool);
    EXPECT_FALSE(SnItemConvert<RCShdPtr<PiDndTool const>>::createItem(dnd)->isEqualIgnoreParts(
        *SnItemConvert<RCShdPtr<PiNodeDndInterface const>>::createItem(dnd)));
    EXPECT_EQ(SnItemConvert<RCShdPtr<PiDndTool const>>::get(
                  SnItemConvert<RCShdPtr<PiDndTool const>>::createItem(dnd))
                  .get(),
              dnd.get());
    EXPECT_EQ(SnItemConvert<LiString>::get(own), LiString("Blur"));
}

// Each type's predicate takes its own items and no other; a pointer payload must not be null.
TEST_F(SnPayloads, PredicatesTellTheTypes) {
    std::vector<Kind> const kinds = allKinds();
    for (Kind const& k : kinds)
        for (Kind const& other : kinds)
            EXPECT_EQ(k.predicate(other.first), &k == &other) << k.name << " / " << other.name;
    int pointers = 0;
    for (Kind const& k : kinds) {
        EXPECT_FALSE(k.predicate(nullptr)) << k.name;
        if (k.null) {
            ++pointers;
            EXPECT_FALSE(k.predicate(k.null)) << k.name;
        }
    }
    EXPECT_EQ(pointers, 10);
    // An empty text is still a text.
    EXPECT_TRUE(
        SnItemConvert<LiString>::getPredicate()(SnItemConvert<LiString>::createItem(LiString())));
}

// A selection of every type, large enough to be indexed, finds each item by a new item of the
// same payload, merges parts into it, and filters each type out.
TEST_F(SnPayloads, MixedSelectionFindsEachItem) {
    std::vector<Kind> const kinds = allKinds();
    auto sel = SnSelection::create();
    for (Kind const& k : kinds) {
        sel->append(k.first);
        sel->append(k.second);
    }
    ASSERT_EQ(sel->getSize(), static_cast<int>(2 * kinds.size()));
    for (Kind const& k : kinds) {
        EXPECT_EQ(sel->findItem(k.firstAgain()).get(), k.first.get()) << k.name;
        EXPECT_EQ(sel->findItem(k.second).get(), k.second.get()) << k.name;
        auto f = sel->filter(k.predicate);
        ASSERT_EQ(f->getSize(), 2) << k.name;
        EXPECT_EQ(f->getFirst().get(), k.first.get());
    }
    // Appending an item again with parts narrows the listed one instead of adding one.
    Kind const& key = kinds[8];
    Kind const& curve = kinds[9];
    ASSERT_EQ(key.name + curve.name, "keycurve");
    auto narrowed = key.firstAgain();
    RCShdPtr<SnItem> withParts(narrowed->clone());
    withParts->setParts(RCShdPtr<SnParts>(new SnPartsBasic<int>({4})));
    sel->append(withParts);
    EXPECT_EQ(sel->getSize(), static_cast<int>(2 * kinds.size()));
    EXPECT_TRUE(sel->findItemIgnoreParts(narrowed)->hasParts());
    EXPECT_TRUE(sel->remove(curve.firstAgain()));
    EXPECT_FALSE(sel->hasItemIgnoreParts(curve.first));
    EXPECT_TRUE(sel->hasItemIgnoreParts(curve.second));
}

// A pointer payload is written with the dynamic type of what it points to.
TEST_F(SnPayloads, DumpNamesThePointeeType) {
    auto tool = makeTool();
    struct Case {
        std::string text;
        std::string pointee;
    };
    std::vector<Case> const cases = {
        {dumped(*SnItemConvert<RCShdPtr<PiNodeDndInterface const>>::createItem(
             PiDndTool::create(tool))),
         "Vn::PiDndTool"},
        {dumped(*SnItemConvert<RCShdPtr<PiFileDndInterface const>>::createItem(
             RCShdPtr<PiFileDndInterface const>(new StillFile))),
         "(anonymous namespace)::StillFile"},
        {dumped(*SnItemConvert<RCShdPtr<PiNodeDndInterface>>::createItem(
             RCShdPtr<PiNodeDndInterface>(new Dropped))),
         "(anonymous namespace)::Dropped"},
        {dumped(*SnItemConvert<RCShdPtr<TmKeyframe>>::createItem(TmKeyframe::create(0, 0))),
         "Vn::TmKeyframe"},
    };
    for (Case const& c : cases)
        EXPECT_NE(
            c.text.find("Data:      Pointee type = " + c.pointee + ", T type = Vn::RCShdPtr<"),
            std::string::npos)
            << c.text;
    std::string const key = dumped(*SnItemConvert<RCShdPtr<TmKeyframe>>::createItem(nullptr));
    EXPECT_NE(key.find("Pointee type = null, T type = Vn::RCShdPtr<Vn::TmKeyframe>"),
              std::string::npos)
        << key;
    std::string const text = dumped(*SnItemConvert<LiString>::createItem(LiString("Blur")));
    EXPECT_EQ(text.rfind("Item type: Vn::SnItemBasic<Vn::LiString>\n", 0), 0u) << text;
    EXPECT_NE(text.find("\nData:      Blur\n"), std::string::npos) << text;
}
