#pragma once

#include "LkCounter.h"
#include "RCBase.h"
#include "VnExport.h"

#include <utility>

namespace Vn {

// The test behind a predicate. Shared between predicates with an atomic count, so predicates
// built once at start-up may be copied from any thread.
template <class T>
class VN_EXPORT PrdPredicateImp : public RCBase<LkCounter<int>> {
public:
    virtual bool evaluate(T const& value) const = 0;
};

// A test on values of T, held by value and cheap to copy. Predicates combine with !, && (or &)
// and || (or |) into new ones; the combination evaluates lazily, left to right. Evaluating a
// null predicate raises ExNullPtr.
template <class T>
class VN_EXPORT PrdPredicate {
public:
    using Imp = PrdPredicateImp<T>;

    PrdPredicate() noexcept = default;
    explicit PrdPredicate(RCShdPtr<Imp const> imp) noexcept : _imp(std::move(imp)) {}

    // Any callable taking T const& and giving something convertible to bool.
    template <class F>
    static PrdPredicate fromFunction(F f) {
        return PrdPredicate(RCShdPtr<Imp const>(new FunctionImp<F>(std::move(f))));
    }
    // True for every value.
    static PrdPredicate all() { return constant(true); }
    // False for every value.
    static PrdPredicate none() { return constant(false); }

    bool evaluate(T const& value) const { return _imp->evaluate(value); }
    bool operator()(T const& value) const { return _imp->evaluate(value); }
    bool isNull() const noexcept { return _imp.isNull(); }
    RCShdPtr<Imp const> const& getImp() const noexcept { return _imp; }

    friend PrdPredicate operator!(PrdPredicate const& p) {
        return PrdPredicate(RCShdPtr<Imp const>(new NotImp(p)));
    }
    friend PrdPredicate operator&&(PrdPredicate const& a, PrdPredicate const& b) {
        return PrdPredicate(RCShdPtr<Imp const>(new AndImp(a, b)));
    }
    friend PrdPredicate operator&(PrdPredicate const& a, PrdPredicate const& b) { return a && b; }
    friend PrdPredicate operator||(PrdPredicate const& a, PrdPredicate const& b) {
        return PrdPredicate(RCShdPtr<Imp const>(new OrImp(a, b)));
    }
    friend PrdPredicate operator|(PrdPredicate const& a, PrdPredicate const& b) { return a || b; }

private:
    template <class F>
    class FunctionImp final : public Imp {
    public:
        explicit FunctionImp(F f) : _f(std::move(f)) {}
        bool evaluate(T const& v) const override { return static_cast<bool>(_f(v)); }

    private:
        F _f;
    };
    class ConstImp final : public Imp {
    public:
        explicit ConstImp(bool v) : _v(v) {}
        bool evaluate(T const&) const override { return _v; }

    private:
        bool _v;
    };
    class NotImp final : public Imp {
    public:
        explicit NotImp(PrdPredicate p) : _p(std::move(p)) {}
        bool evaluate(T const& v) const override { return !_p.evaluate(v); }

    private:
        PrdPredicate _p;
    };
    class AndImp final : public Imp {
    public:
        AndImp(PrdPredicate a, PrdPredicate b) : _a(std::move(a)), _b(std::move(b)) {}
        bool evaluate(T const& v) const override { return _a.evaluate(v) && _b.evaluate(v); }

    private:
        PrdPredicate _a, _b;
    };
    class OrImp final : public Imp {
    public:
        OrImp(PrdPredicate a, PrdPredicate b) : _a(std::move(a)), _b(std::move(b)) {}
        bool evaluate(T const& v) const override { return _a.evaluate(v) || _b.evaluate(v); }

    private:
        PrdPredicate _a, _b;
    };

    static PrdPredicate constant(bool v) {
        return PrdPredicate(RCShdPtr<Imp const>(new ConstImp(v)));
    }

    RCShdPtr<Imp const> _imp;
};

} // namespace Vn
