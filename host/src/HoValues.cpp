#include "HoGraphImp.h"

#include "ExBase.h"
#include "PiValueChangeInterface.h"

#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace Vn {

HoValueState::~HoValueState() = default;

namespace {

[[noreturn]] void badText(std::string const& text, char const* type) {
    std::string shown = text.size() > 40 ? text.substr(0, 40) + "..." : text;
    VN_THROW_MSG(ExBase, "\"" + shown + "\" is not a " + type);
}

// Text forms of the value types, and the equality under which a write changes nothing:
// doubles compare by their bits, so that NaN equals itself and -0 differs from 0.
template <class T>
struct Codec;

template <>
struct Codec<bool> {
    static constexpr PiValueType type = PiValueType::Bool;
    static std::string format(bool v) { return v ? "true" : "false"; }
    static bool parse(std::string const& t) {
        if (t == "true" || t == "1")
            return true;
        if (t == "false" || t == "0")
            return false;
        badText(t, "bool");
    }
    static bool same(bool a, bool b) { return a == b; }
};

template <>
struct Codec<double> {
    static constexpr PiValueType type = PiValueType::Double;
    // The shortest text that reads back as the same double: 0.1 rather than 0.10000000000000001.
    static std::string format(double v) {
        char buf[32];
        return std::string(buf, std::to_chars(buf, buf + sizeof buf, v).ptr);
    }
    static double parse(std::string const& t) {
        char* end = nullptr;
        errno = 0;
        double v = std::strtod(t.c_str(), &end);
        if (t.empty() || end != t.c_str() + t.size() || (errno == ERANGE && std::abs(v) > 1.0))
            badText(t, "double");
        return v;
    }
    static bool same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }
};

template <>
struct Codec<int> {
    static constexpr PiValueType type = PiValueType::Int;
    static std::string format(int v) { return std::to_string(v); }
    static int parse(std::string const& t) {
        char* end = nullptr;
        errno = 0;
        long v = std::strtol(t.c_str(), &end, 10);
        if (t.empty() || end != t.c_str() + t.size() || errno == ERANGE ||
            v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max())
            badText(t, "int");
        return static_cast<int>(v);
    }
    static bool same(int a, int b) { return a == b; }
};

template <>
struct Codec<DtTime> {
    static constexpr PiValueType type = PiValueType::Time;
    static std::string format(DtTime v) { return std::to_string(v.getMicroseconds()); }
    static DtTime parse(std::string const& t) {
        char* end = nullptr;
        errno = 0;
        long long v = std::strtoll(t.c_str(), &end, 10);
        if (t.empty() || end != t.c_str() + t.size() || errno == ERANGE)
            badText(t, "time in microseconds");
        return DtTime(static_cast<std::int64_t>(v));
    }
    static bool same(DtTime a, DtTime b) { return a == b; }
};

template <>
struct Codec<std::string> {
    static constexpr PiValueType type = PiValueType::String;
    static std::string format(std::string const& v) { return v; }
    static std::string parse(std::string const& t) { return t; }
    static bool same(std::string const& a, std::string const& b) { return a == b; }
};

template <class T>
struct ArrayCodec {
    static constexpr PiValueType type =
        std::is_same_v<T, double> ? PiValueType::DoubleArray : PiValueType::IntArray;

    static std::string format(std::vector<T> const& v) {
        std::string s;
        for (std::size_t i = 0; i < v.size(); ++i) {
            if (i)
                s += ' ';
            s += Codec<T>::format(v[i]);
        }
        return s;
    }
    static std::vector<T> parse(std::string const& t) {
        std::vector<T> v;
        std::size_t pos = 0;
        while (pos < t.size()) {
            std::size_t sp = t.find(' ', pos);
            if (sp == std::string::npos)
                sp = t.size();
            v.push_back(Codec<T>::parse(t.substr(pos, sp - pos)));
            pos = sp + 1;
            if (sp + 1 == t.size())
                badText(t, "list of numbers");
        }
        return v;
    }
    static bool same(std::vector<T> const& a, std::vector<T> const& b) {
        if (a.size() != b.size())
            return false;
        for (std::size_t i = 0; i < a.size(); ++i)
            if (!Codec<T>::same(a[i], b[i]))
                return false;
        return true;
    }
};

// Strings are quoted, with backslashes before quotes and backslashes, and separated by one
// blank, so that any text, empty or with blanks, comes back as it was.
template <>
struct ArrayCodec<std::string> {
    static constexpr PiValueType type = PiValueType::StringArray;
    static std::string format(std::vector<std::string> const& v) {
        std::string s;
        for (std::size_t i = 0; i < v.size(); ++i) {
            if (i)
                s += ' ';
            s += '"';
            for (char c : v[i]) {
                if (c == '"' || c == '\\')
                    s += '\\';
                s += c;
            }
            s += '"';
        }
        return s;
    }
    static std::vector<std::string> parse(std::string const& t) {
        std::vector<std::string> v;
        std::size_t pos = 0;
        while (pos < t.size()) {
            if (t[pos] != '"' || (!v.empty() && t[pos - 1] != ' '))
                badText(t, "list of quoted texts");
            std::string item;
            for (++pos;; ++pos) {
                if (pos >= t.size())
                    badText(t, "list of quoted texts");
                if (t[pos] == '\\' && pos + 1 < t.size())
                    item += t[++pos];
                else if (t[pos] == '"')
                    break;
                else
                    item += t[pos];
            }
            v.push_back(std::move(item));
            ++pos;
            if (pos < t.size() && (t[pos] != ' ' || pos + 1 == t.size()))
                badText(t, "list of quoted texts");
            if (pos < t.size())
                ++pos;
        }
        return v;
    }
    static bool same(std::vector<std::string> const& a, std::vector<std::string> const& b) {
        return a == b;
    }
};

// Writes one stored content, either way.
template <class Holder, class Stored>
class SetValue final : public PiAction {
public:
    SetValue(Holder* h, Stored value) : _keep(h), _h(h), _old(h->_v), _new(std::move(value)) {}
    void apply() override { _h->_v = _new; }
    void revert() override { _h->_v = _old; }
    void notifyApplied() override { notifyValueChanged(*_h); }
    void notifyReverted() override { notifyValueChanged(*_h); }

private:
    RCShdPtr<PiValue> _keep;
    Holder* _h;
    Stored _old, _new;
};

void requireInGraph(HoValueState const& s, PiValue const& v) {
    if (!v.isValid())
        VN_THROW_MSG(ExBase, "the stored value \"" + s.name() + "\" is not in a graph");
}

template <class T>
class HoTypedValue final : public PiTypedValue<T>, public HoValueState {
public:
    HoTypedValue(HoNode* node, std::string name) : HoValueState(node, std::move(name)) {}
    bool isValid() const override { return attached() && node() && node()->isValid(); }
    std::string const& getName() const override { return name(); }
    PiValueType getType() const override { return Codec<T>::type; }
    RCShdPtr<PiNode> getNode() const override { return RCShdPtr<PiNode>(node()); }
    std::string toString() const override { return Codec<T>::format(_v); }
    void setFromString(std::string const& text) override { set(Codec<T>::parse(text)); }
    T get() const override { return _v; }
    void set(T const& v) override {
        if (Codec<T>::same(v, _v))
            return;
        requireInGraph(*this, *this);
        PiUndoGuard guard(node()->graph().stack(), "Set Value");
        node()->graph().record(OPtr<PiAction>(new SetValue<HoTypedValue, T>(this, v)));
    }
    PiValue& value() override { return *this; }
    RCShdPtr<PiValue> copyFor(HoNode* node) const override {
        auto* c = new HoTypedValue(node, name());
        c->_v = _v;
        return RCShdPtr<PiValue>(c);
    }
    void load(std::string const& text) override { _v = Codec<T>::parse(text); }

private:
    friend class SetValue<HoTypedValue, T>;
    T _v{};
};

template <class T>
class HoTypedValueArray final : public PiTypedValueArray<T>, public HoValueState {
public:
    using ArrayPtr = typename PiTypedValueArray<T>::ArrayPtr;
    using Array = typename PiTypedValueArray<T>::Array;

    HoTypedValueArray(HoNode* node, std::string name)
        : HoValueState(node, std::move(name)), _v(std::make_shared<Array const>()) {}
    bool isValid() const override { return attached() && node() && node()->isValid(); }
    std::string const& getName() const override { return name(); }
    PiValueType getType() const override { return ArrayCodec<T>::type; }
    RCShdPtr<PiNode> getNode() const override { return RCShdPtr<PiNode>(node()); }
    std::string toString() const override { return ArrayCodec<T>::format(*_v); }
    void setFromString(std::string const& text) override { setArray(ArrayCodec<T>::parse(text)); }
    ArrayPtr getArray() const override { return _v; }
    void setArray(Array values) override {
        if (ArrayCodec<T>::same(values, *_v))
            return;
        requireInGraph(*this, *this);
        PiUndoGuard guard(node()->graph().stack(), "Set Value");
        node()->graph().record(OPtr<PiAction>(new SetValue<HoTypedValueArray, ArrayPtr>(
            this, std::make_shared<Array const>(std::move(values)))));
    }
    PiValue& value() override { return *this; }
    RCShdPtr<PiValue> copyFor(HoNode* node) const override {
        auto* c = new HoTypedValueArray(node, name());
        c->_v = _v;
        return RCShdPtr<PiValue>(c);
    }
    void load(std::string const& text) override {
        _v = std::make_shared<Array const>(ArrayCodec<T>::parse(text));
    }

private:
    friend class SetValue<HoTypedValueArray, ArrayPtr>;
    ArrayPtr _v;
};

} // namespace

RCShdPtr<PiValue> makeValue(HoNode* node, std::string const& name, PiValueType type) {
    switch (type) {
    case PiValueType::Bool:
        return RCShdPtr<PiValue>(new HoTypedValue<bool>(node, name));
    case PiValueType::Double:
        return RCShdPtr<PiValue>(new HoTypedValue<double>(node, name));
    case PiValueType::Int:
        return RCShdPtr<PiValue>(new HoTypedValue<int>(node, name));
    case PiValueType::Time:
        return RCShdPtr<PiValue>(new HoTypedValue<DtTime>(node, name));
    case PiValueType::String:
        return RCShdPtr<PiValue>(new HoTypedValue<std::string>(node, name));
    case PiValueType::DoubleArray:
        return RCShdPtr<PiValue>(new HoTypedValueArray<double>(node, name));
    case PiValueType::IntArray:
        return RCShdPtr<PiValue>(new HoTypedValueArray<int>(node, name));
    case PiValueType::StringArray:
        return RCShdPtr<PiValue>(new HoTypedValueArray<std::string>(node, name));
    }
    VN_THROW_MSG(ExBase, "the stored value \"" + name + "\" has the unknown type " +
                             std::to_string(static_cast<int>(type)));
}

HoValueState& valueState(PiValue const& v) {
    HoValueState const* s = nullptr;
    switch (v.getType()) {
    case PiValueType::Bool:
        s = exactCast<HoTypedValue<bool>>(&v);
        break;
    case PiValueType::Double:
        s = exactCast<HoTypedValue<double>>(&v);
        break;
    case PiValueType::Int:
        s = exactCast<HoTypedValue<int>>(&v);
        break;
    case PiValueType::Time:
        s = exactCast<HoTypedValue<DtTime>>(&v);
        break;
    case PiValueType::String:
        s = exactCast<HoTypedValue<std::string>>(&v);
        break;
    case PiValueType::DoubleArray:
        s = exactCast<HoTypedValueArray<double>>(&v);
        break;
    case PiValueType::IntArray:
        s = exactCast<HoTypedValueArray<int>>(&v);
        break;
    case PiValueType::StringArray:
        s = exactCast<HoTypedValueArray<std::string>>(&v);
        break;
    }
    if (!s)
        s = dynamic_cast<HoValueState const*>(&v);
    if (!s)
        RCExUtil::throwExCastFailed(typeid(v).name(), "HoValueState");
    return const_cast<HoValueState&>(*s);
}

void notifyValueChanged(PiValue& v) {
    HoNode* node = valueState(v).node();
    if (!node)
        return;
    if (PiValueChangeInterface* c = node->valueInterface())
        PiValueChangeInterfaceManip::valueChanged(*c, RCShdPtr<PiValue>(&v));
}

} // namespace Vn
