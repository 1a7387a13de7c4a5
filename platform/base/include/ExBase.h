#pragma once

#include "OPtr.h"
#include "VnExport.h"

#include <exception>
#include <string>
#include <utility>

namespace Vn {

// Root of every failure the system raises. It carries the source position where it was raised
// and a reason. `raise` throws the real class, so a clone made on one thread can be thrown again
// on another with its type intact.
class VN_EXPORT ExBase : public std::exception {
public:
    ExBase(char const* file, int line);
    ExBase(ExBase const&) = default;
    ExBase& operator=(ExBase const&) = default;
    ~ExBase() override;

    char const* what() const noexcept override;
    virtual std::string getReason() const;
    // "file:line: reason"
    virtual std::string getDetailedReason() const;
    virtual OPtrRet<ExBase> clone() const;
    [[noreturn]] virtual void raise() const;

    void setReason(std::string reason);
    std::string const& getFile() const { return _file; }
    int getLine() const { return _line; }

private:
    std::string _file;
    int _line;
    std::string _reason;
    mutable std::string _what;
};

// Declares the clone/raise pair every concrete exception class must have.
#define VN_EX_CLONE_RAISE(Class)                                                                   \
    ::Vn::OPtrRet<::Vn::ExBase> clone() const override {                                           \
        return ::Vn::OPtrRet<::Vn::ExBase>(new Class(*this));                                      \
    }                                                                                              \
    [[noreturn]] void raise() const override {                                                     \
        throw Class(*this);                                                                        \
    }

// A fault of the system itself, with a message.
class VN_EXPORT ExInternalError : public ExBase {
public:
    ExInternalError(char const* file, int line, std::string text = "internal error");
    ~ExInternalError() override;
    VN_EX_CLONE_RAISE(ExInternalError)
};

// A failed precondition; its reason is the condition's text.
class VN_EXPORT ExAssertionFailed : public ExBase {
public:
    ExAssertionFailed(char const* file, int line, char const* text);
    ~ExAssertionFailed() override;
    VN_EX_CLONE_RAISE(ExAssertionFailed)
};

// A program stop, raised instead of terminating so that hosts and tests can see it.
class VN_EXPORT ExProgramAborted : public ExBase {
public:
    ExProgramAborted(char const* file, int line, char const* text);
    ~ExProgramAborted() override;
    VN_EX_CLONE_RAISE(ExProgramAborted)
};

// A null handle was used.
class VN_EXPORT ExNullPtr : public ExBase {
public:
    ExNullPtr(char const* file, int line, char const* typeName);
    ~ExNullPtr() override;
    VN_EX_CLONE_RAISE(ExNullPtr)
};

// A cast to a required class failed.
class VN_EXPORT ExCastFailed : public ExBase {
public:
    ExCastFailed(char const* file, int line, char const* fromType, char const* toType);
    ~ExCastFailed() override;
    VN_EX_CLONE_RAISE(ExCastFailed)
};

// Adds a message to any exception class whose constructor takes (file, line).
template <class Base = ExBase>
class VN_EXPORT MsgException : public Base {
public:
    MsgException(char const* file, int line, std::string message) : Base(file, line) {
        this->setReason(std::move(message));
    }
    OPtrRet<ExBase> clone() const override { return OPtrRet<ExBase>(new MsgException(*this)); }
    [[noreturn]] void raise() const override { throw MsgException(*this); }
};

// Carries an exception cloned on another thread. Raising it throws the original's real class;
// its texts are the original's, with the place of the rethrow added to the detailed reason.
template <class Base = ExBase>
class VN_EXPORT ExRethrow : public Base {
public:
    ExRethrow(char const* file, int line, OPtr<ExBase> original)
        : Base(file, line), _original(std::move(original)) {
        if (_original)
            this->setReason(_original->getReason());
    }
    ExRethrow(ExRethrow const& o)
        : Base(o), _original(o._original ? o._original->clone() : nullptr) {}

    ExBase const* getOriginal() const { return _original.get(); }
    std::string getDetailedReason() const override {
        if (!_original)
            return Base::getDetailedReason();
        return _original->getDetailedReason() + " (rethrown at " + this->getFile() + ":" +
               std::to_string(this->getLine()) + ")";
    }
    OPtrRet<ExBase> clone() const override { return OPtrRet<ExBase>(new ExRethrow(*this)); }
    [[noreturn]] void raise() const override {
        if (_original)
            _original->raise();
        throw ExRethrow(*this);
    }

private:
    OPtr<ExBase> _original;
};

// Runs a functor and hands back whatever it raised, as an ExBase, instead of letting it out.
class VN_EXPORT ExWrapper {
public:
    template <class Functor, class... Args>
    static OPtrRet<ExBase> execute(Functor& f, Args&&... args) {
        try {
            f(std::forward<Args>(args)...);
        } catch (ExBase const& e) {
            return e.clone();
        } catch (std::exception const& e) {
            return wrapStd(e);
        } catch (...) {
            return wrapUnknown();
        }
        return nullptr;
    }

    // The exception in flight, cloned; call only inside a catch block.
    static OPtrRet<ExBase> cloneCurrent();

private:
    static OPtrRet<ExBase> wrapStd(std::exception const& e);
    static OPtrRet<ExBase> wrapUnknown();
};

// Writes one whole line to standard output; lines from several threads never interleave.
class VN_EXPORT ExStdout {
public:
    static void printAtomically(std::string const& text);
};

} // namespace Vn

#define VN_THROW_MSG(ExClass, message)                                                             \
    throw ::Vn::MsgException<ExClass>(__FILE__, __LINE__, message)
