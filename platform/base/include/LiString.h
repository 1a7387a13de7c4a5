#pragma once

#include "VnExport.h"

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

namespace Vn {

// The system's text: UTF-8 bytes, compared byte by byte. A type of its own rather than a
// synonym of std::string, so that a text the user named (a tool category, a resource name)
// and a plain string stay distinct where types tell things apart, as selection items do.
class VN_EXPORT LiString {
public:
    LiString() = default;
    LiString(std::string text) : _text(std::move(text)) {}
    LiString(char const* text);
    LiString(std::string_view text) : _text(text) {}

    std::string const& str() const noexcept { return _text; }
    char const* c_str() const noexcept { return _text.c_str(); }
    std::size_t size() const noexcept { return _text.size(); }
    bool isEmpty() const noexcept { return _text.empty(); }

    LiString& operator+=(LiString const& o) {
        _text += o._text;
        return *this;
    }
    friend LiString operator+(LiString a, LiString const& b) { return a += b; }

    bool operator==(LiString const& o) const noexcept = default;
    std::strong_ordering operator<=>(LiString const& o) const noexcept {
        return _text.compare(o._text) <=> 0;
    }

private:
    std::string _text;
};

VN_EXPORT std::ostream& operator<<(std::ostream& os, LiString const& s);

} // namespace Vn

template <>
struct std::hash<Vn::LiString> {
    std::size_t operator()(Vn::LiString const& s) const noexcept {
        return std::hash<std::string>()(s.str());
    }
};
