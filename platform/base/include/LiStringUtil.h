#pragma once

#include "VnExport.h"

#include <string>

namespace Vn {

// Text helpers of the system's strings.
class VN_EXPORT LiStringUtil {
public:
    // Says whether a name may be given, in either width.
    class VN_EXPORT ValidateNamePredicate {
    public:
        virtual ~ValidateNamePredicate();
        virtual bool isValid(std::wstring const& name) = 0;
        virtual bool isValid(std::string const& name) = 0;
    };

    // Decimal text of a whole number, without grouping or a plus sign, whatever the locale.
    static std::string convertNb(long long n);
    // ASCII letters lowered; other bytes, UTF-8 sequences included, kept.
    static std::string toLowerCase(std::string const& text);
};

// Between wide text and the system's UTF-8.
class VN_EXPORT WideStringUtil {
public:
    // UTF-8 of wide text. Lone surrogates and values beyond Unicode become U+FFFD.
    static std::string narrowMB(std::wstring const& wide);
    // Wide text of UTF-8. Malformed sequences become U+FFFD, one per byte they spoil.
    static std::wstring widenMB(std::string const& text);
};

} // namespace Vn
