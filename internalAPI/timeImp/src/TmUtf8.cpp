#include "TmUtf8.h"

#include <cstdint>

namespace Vn {

namespace {
void put(std::string& out, std::uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}
} // namespace

std::string tmNarrowToUtf8(std::wstring const& wide) {
    std::string out;
    out.reserve(wide.size());
    for (std::size_t i = 0; i < wide.size(); ++i) {
        auto c = static_cast<std::uint32_t>(wide[i]);
        // Where wchar_t has 16 bits, a pair of surrogates makes one code point.
        if constexpr (sizeof(wchar_t) == 2) {
            if (c >= 0xD800 && c < 0xDC00 && i + 1 < wide.size()) {
                auto low = static_cast<std::uint32_t>(wide[i + 1]);
                if (low >= 0xDC00 && low < 0xE000) {
                    put(out, 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00));
                    ++i;
                    continue;
                }
            }
        }
        if ((c >= 0xD800 && c < 0xE000) || c > 0x10FFFF)
            c = 0xFFFD;
        put(out, c);
    }
    return out;
}

} // namespace Vn
