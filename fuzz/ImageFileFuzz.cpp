// Arbitrary bytes as an image file. The first byte picks the extension, the rest is the file. A
// file that cannot be read must raise ExBase; one that opens must describe itself, and its
// pixels must read into an image of its own format or raise ExBase.
#include "ExBase.h"
#include "FuzzCheck.h"
#include "HoImageFiles.h"
#include "ImImageConst.h"
#include "InPackageInit.h"
#include "PiImageFileDetails.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

using namespace Vn;

namespace {

constexpr char const* kExtensions[] = {"exr", "png", "tif", "dpx", "jpg", "bmp", "hdr", "tga"};
constexpr std::size_t kNbExtensions = sizeof(kExtensions) / sizeof(kExtensions[0]);
// Larger pictures are opened and described, not read: the fuzzer's memory is bounded.
constexpr long long kMaxReadPixels = 1 << 22;

std::string g_folder;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    InInitMgr::getInstance().initialize();
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vn-image-fuzz-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        std::abort();
    g_folder = pattern;
    std::atexit([] {
        for (char const* e : kExtensions)
            std::remove((g_folder + "/input." + e).c_str());
        ::rmdir(g_folder.c_str());
        InInitMgr::getInstance().finalize();
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1)
        return 0;
    std::string const path = g_folder + "/input." + kExtensions[data[0] % kNbExtensions];
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<char const*>(data + 1), static_cast<std::streamsize>(size - 1));
        if (!out)
            std::abort();
    }
    OPtr<HoOiioImageFile> file;
    try {
        file = HoOiioImageFile::openForReading(path);
    } catch (ExBase const&) {
        return 0;
    }
    ImFormat const format = file->getFormat();
    int const comps = format.getPixelFormat().getComps();
    fuzzCheck(format.getWidth() >= 1 && format.getHeight() >= 1 && (comps == 3 || comps == 4));
    fuzzCheck(file->getNbComponents() >= 1 && file->getNbComponents() <= 4);
    fuzzCheck(file->getDetails().get() != nullptr);
    if (static_cast<long long>(format.getWidth()) * format.getHeight() > kMaxReadPixels)
        return 0;
    try {
        ImImage image =
            ImImage::create(ImLayout(format.getPixelFormat(), format.getRegion()), "fuzz");
        file->beginImageRead({format.getWidth(), format.getHeight()});
        file->readImage(format.getRegion(), image);
        file->endImageRead();
    } catch (ExBase const&) {
    }
    return 0;
}
