#include "PiToolInterface.h"
#include "ExBase.h"
#include "PiDisplayGraphInterface.h"
#include "PiDndTool.h"
#include "PiGraphUtils.h"
#include "PiImageModifierProtocol.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Vn;

namespace {
class Modifier final : public PiImageModifierProtocol {
public:
    Modifier(std::string name, bool display, int images, std::string second = "Mask")
        : PiImageModifierProtocol(std::move(name), "Color", "1.0"), _display(display),
          _images(images), _second(std::move(second)) {}
    bool isDisplayModifier() const override { return _display; }
    void describe(PiToolPolicyDescriptor& d) const override {
        if (_images > 0)
            d.require("Source", PiSocketType::IMAGE);
        if (_images > 1)
            d.require(_second, PiSocketType::IMAGE);
        for (int i = 2; i < _images; ++i)
            d.require("Extra" + std::to_string(i), PiSocketType::IMAGE);
        d.require("Gain", PiSocketType::DOUBLE);
        d.produces("Output", PiSocketType::IMAGE);
    }

private:
    bool _display;
    int _images;
    std::string _second;
};

class Plain final : public PiToolProtocolImp {
public:
    Plain() : PiToolProtocolImp("Blur", "Filter", "1.0", "Acme") {}
    void describe(PiToolPolicyDescriptor& d) const override {
        d.require("Source", PiSocketType::IMAGE);
        d.require("Reference", PiSocketType::IMAGE);
        d.produces("Output", PiSocketType::IMAGE);
    }
};

RCShdPtr<PiTool const> tool(PiToolProtocol* p) {
    return RCShdPtr<PiTool const>(new PiTool(RCShdPtr<PiToolProtocol const>(p)));
}
} // namespace

TEST(PiDisplayGraphInterface, ToolsOfADisplayGraph) {
    auto grade = tool(new Modifier("Grade", true, 1));
    auto matte = tool(new Modifier("Matte", false, 2));
    auto wipe = tool(new Modifier("Wipe", false, 2, "Reference"));
    auto three = tool(new Modifier("Three", true, 3, "Reference"));
    auto blur = tool(new Plain);
    EXPECT_TRUE(PiDisplayGraphInterface::isADisplayModifierTool(grade));
    EXPECT_FALSE(PiDisplayGraphInterface::isADisplayModifierTool(matte));
    EXPECT_FALSE(PiDisplayGraphInterface::isADisplayModifierTool(blur));
    EXPECT_FALSE(PiDisplayGraphInterface::isADisplayModifierTool(nullptr));
    EXPECT_TRUE(PiDisplayGraphInterface::isAComparisonTool(wipe));
    EXPECT_FALSE(PiDisplayGraphInterface::isAComparisonTool(matte));
    EXPECT_FALSE(PiDisplayGraphInterface::isAComparisonTool(three));
    // Two image inputs and a "Reference", but not an image modifier.
    EXPECT_FALSE(PiDisplayGraphInterface::isAComparisonTool(blur));
    EXPECT_FALSE(PiDisplayGraphInterface::isAComparisonTool(nullptr));
}

TEST(PiDndTool, NamesAndPathOfATool) {
    auto blur = tool(new Plain);
    auto grade = tool(new Modifier("Grade", true, 1));
    auto d = PiDndTool::create(blur);
    EXPECT_EQ(d->getTool().get(), blur.get());
    EXPECT_EQ(d->getName(), "Blur");
    EXPECT_EQ(d->getPath(), "Filter/Blur");
    EXPECT_FALSE(d->isADisplayModifierTool());
    EXPECT_TRUE(PiDndTool::create(grade)->isADisplayModifierTool());
    EXPECT_EQ(PiDndTool::create(grade)->getPath(), "Color/Grade");
    EXPECT_THROW(PiDndTool::create(nullptr), ExNullPtr);
}

TEST(PiGraphUtils, ParsesNumberedNames) {
    using U = PiGraphUtils;
    EXPECT_EQ(U::parseNodeName("Blur", "Blur", U::BASE_IS_FIRST), 1);
    EXPECT_EQ(U::parseNodeName("Blur", "Blur", U::ALWAYS_NUMBERED), -1);
    EXPECT_EQ(U::parseNodeName("Blur (12)", "Blur", U::ALWAYS_NUMBERED), 12);
    EXPECT_EQ(U::parseNodeName("Blur (12)", "Blur", U::BASE_IS_FIRST), 12);
    for (std::string bad : {"Blur (x)", "Blur(2)", "Blur (2", "Blur ()", "Blurry", "Blur (2) ",
                            "Blu", "Blur (-2)", "Blur (99999999999)"})
        EXPECT_EQ(U::parseNodeName(bad, "Blur", U::BASE_IS_FIRST), -1) << bad;
    EXPECT_THROW(U::findUniqueNodeName(nullptr, "Blur", U::BASE_IS_FIRST), ExNullPtr);
    EXPECT_TRUE(U::getTool(nullptr).isNull());
}
