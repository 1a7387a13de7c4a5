#include "LiStringUtil.h"

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
void putWide(std::wstring& out, std::uint32_t c) {
    if constexpr (sizeof(wchar_t) == 2) {
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<wchar_t>(0xD800 + (c >> 10));
            out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
            return;
        }
    }
    out += static_cast<wchar_t>(c);
}
} // namespace

LiStringUtil::ValidateNamePredicate::~ValidateNamePredicate() = default;

std::string LiStringUtil::convertNb(long long n) {
    return std::to_string(n);
}

std::string LiStringUtil::toLowerCase(std::string const& text) {
    std::string out = text;
    for (char& c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string WideStringUtil::narrowMB(std::wstring const& wide) {
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

std::wstring WideStringUtil::widenMB(std::string const& text) {
    std::wstring out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        auto const b = static_cast<unsigned char>(text[i]);
        int const len = b < 0x80         ? 1
                        : (b >> 5) == 6  ? 2
                        : (b >> 4) == 14 ? 3
                        : (b >> 3) == 30 ? 4
                                         : 0;
        std::uint32_t c = len == 1 ? b : len == 2 ? (b & 0x1F) : len == 3 ? (b & 0x0F) : (b & 0x07);
        bool ok = len != 0 && i + len <= text.size();
        for (int k = 1; ok && k < len; ++k) {
            auto const t = static_cast<unsigned char>(text[i + k]);
            ok = (t & 0xC0) == 0x80;
            c = (c << 6) | (t & 0x3F);
        }
        // Overlong forms, surrogates and values beyond Unicode are malformed too.
        static constexpr std::uint32_t kLeast[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (ok && (c < kLeast[len] || (c >= 0xD800 && c < 0xE000) || c > 0x10FFFF))
            ok = false;
        if (!ok) {
            putWide(out, 0xFFFD);
            ++i;
            continue;
        }
        putWide(out, c);
        i += static_cast<std::size_t>(len);
    }
    return out;
}

} // namespace Vn
