#include "LiDate.h"

#include "ExBase.h"

#include <cctype>
#include <chrono>
#include <cstdio>
#include <ostream>

namespace Vn {

namespace {

// Days since 1970-01-01 of a date of the proleptic Gregorian calendar, and back.
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    std::int64_t const era = (y >= 0 ? y : y - 399) / 400;
    unsigned const yoe = static_cast<unsigned>(y - era * 400);
    unsigned const doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    unsigned const doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}
void civilFromDays(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    std::int64_t const era = (z >= 0 ? z : z - 146096) / 146097;
    unsigned const doe = static_cast<unsigned>(z - era * 146097);
    unsigned const yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    unsigned const doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    unsigned const mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2);
}
unsigned daysInMonth(std::int64_t y, unsigned m) {
    static constexpr unsigned days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool const leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
    return m == 2 && leap ? 29 : days[m - 1];
}

// Reads exactly `n` digits at `at`; false when they are not there.
bool digits(std::string_view t, std::size_t& at, std::size_t n, unsigned& value) {
    if (at + n > t.size())
        return false;
    value = 0;
    for (std::size_t i = 0; i < n; ++i) {
        char const c = t[at + i];
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    at += n;
    return true;
}
bool expect(std::string_view t, std::size_t& at, char c) {
    if (at >= t.size() || t[at] != c)
        return false;
    ++at;
    return true;
}

[[noreturn]] void notADate(std::string_view text) {
    VN_THROW_MSG(ExBase, "\"" + std::string(text.substr(0, 64)) +
                             "\" is not a date of the form 2026-03-01T09:30:00Z");
}

} // namespace

LiDate::LiDate(std::int64_t seconds, std::int64_t nanoseconds) {
    std::int64_t carry = nanoseconds / 1000000000;
    nanoseconds %= 1000000000;
    if (nanoseconds < 0) {
        nanoseconds += 1000000000;
        --carry;
    }
    _seconds = seconds + carry;
    _nanoseconds = static_cast<std::int32_t>(nanoseconds);
}

LiDate LiDate::now() {
    auto const ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::system_clock::now().time_since_epoch())
                        .count();
    return LiDate(0, ns);
}

LiDate LiDate::fromIso8601(std::string_view t) {
    std::size_t at = 0;
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(t, at, 4, year) || !expect(t, at, '-') || !digits(t, at, 2, month) ||
        !expect(t, at, '-') || !digits(t, at, 2, day) || !expect(t, at, 'T') ||
        !digits(t, at, 2, hour) || !expect(t, at, ':') || !digits(t, at, 2, minute) ||
        !expect(t, at, ':') || !digits(t, at, 2, second))
        notADate(t);
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59)
        notADate(t);
    std::int64_t nanoseconds = 0;
    if (at < t.size() && t[at] == '.') {
        ++at;
        std::size_t n = 0;
        std::int64_t scale = 100000000;
        for (; at < t.size() && std::isdigit(static_cast<unsigned char>(t[at])); ++at, ++n) {
            if (n == 9)
                notADate(t);
            nanoseconds += (t[at] - '0') * scale;
            scale /= 10;
        }
        if (n == 0)
            notADate(t);
    }
    std::int64_t offset = 0;
    if (expect(t, at, 'Z')) {
    } else if (at < t.size() && (t[at] == '+' || t[at] == '-')) {
        int const sign = t[at] == '+' ? 1 : -1;
        ++at;
        unsigned oh = 0, om = 0;
        if (!digits(t, at, 2, oh) || !expect(t, at, ':') || !digits(t, at, 2, om) || oh > 23 ||
            om > 59)
            notADate(t);
        offset = sign * static_cast<std::int64_t>(oh * 3600 + om * 60);
    } else {
        notADate(t);
    }
    if (at != t.size())
        notADate(t);
    std::int64_t const seconds =
        daysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second - offset;
    return LiDate(seconds, nanoseconds);
}

std::string LiDate::toIso8601() const {
    std::int64_t days = _seconds / 86400;
    std::int64_t rest = _seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    std::int64_t y = 0;
    unsigned m = 0, d = 0;
    civilFromDays(days, y, m, d);
    char text[64];
    int n = std::snprintf(text, sizeof text, "%04lld-%02u-%02uT%02d:%02d:%02d",
                          static_cast<long long>(y), m, d, static_cast<int>(rest / 3600),
                          static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60));
    if (_nanoseconds != 0) {
        char fraction[16];
        std::snprintf(fraction, sizeof fraction, "%09d", static_cast<int>(_nanoseconds));
        std::string f(fraction);
        while (f.back() == '0')
            f.pop_back();
        return std::string(text, static_cast<std::size_t>(n)) + "." + f + "Z";
    }
    return std::string(text, static_cast<std::size_t>(n)) + "Z";
}

std::ostream& operator<<(std::ostream& os, LiDate const& d) {
    return os << d.toIso8601();
}

} // namespace Vn
