// Arbitrary bytes as an image sequence description. Bad text must raise ExBase; a sequence it
// accepts must describe itself in a text that reads back to the same sequence.
#include "ExBase.h"
#include "FuzzCheck.h"
#include "HoImageFiles.h"

#include <cstdint>
#include <cstdlib>
#include <string>

using namespace Vn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static bool const registered = (HoNumberedSequence::registerKind(), true);
    (void)registered;
    OPtr<PiImageSequence> s;
    try {
        s = PiImageSequence::createFromText(std::string(reinterpret_cast<char const*>(data), size),
                                            "fuzz.xml");
    } catch (ExBase const&) {
        return 0;
    }
    fuzzCheck(s && s->getNbImages() >= 1 && s->getNbImages() <= HoNumberedSequence::kMaxFrames);
    std::string const text = s->toXml();
    OPtr<PiImageSequence> const again = PiImageSequence::createFromText(text, "again.xml");
    fuzzCheck(again->toXml() == text && again->getNbImages() == s->getNbImages());
    fuzzCheck(again->getImagePath(s->getNbImages() - 1) == s->getImagePath(s->getNbImages() - 1));
    try {
        s->getImagePath(s->getNbImages());
        fuzzCheck(false);
    } catch (ExBase const&) {
    }
    return 0;
}
