#include "ExBase.h"
#include "Assertions.h"
#include "RCExUtil.h"

#include <cstdio>
#include <mutex>

namespace Vn {

ExBase::ExBase(char const* file, int line) : _file(file ? file : "?"), _line(line) {}
ExBase::~ExBase() = default;

char const* ExBase::what() const noexcept {
    try {
        _what = getDetailedReason();
        return _what.c_str();
    } catch (...) {
        return "exception (no memory for its text)";
    }
}

std::string ExBase::getReason() const {
    return _reason;
}

std::string ExBase::getDetailedReason() const {
    return _file + ":" + std::to_string(_line) + ": " + getReason();
}

OPtrRet<ExBase> ExBase::clone() const {
    return OPtrRet<ExBase>(new ExBase(*this));
}
void ExBase::raise() const {
    throw ExBase(*this);
}
void ExBase::setReason(std::string reason) {
    _reason = std::move(reason);
}

ExInternalError::ExInternalError(char const* file, int line, std::string text)
    : ExBase(file, line) {
    setReason(std::move(text));
}
ExInternalError::~ExInternalError() = default;

ExAssertionFailed::ExAssertionFailed(char const* file, int line, char const* text)
    : ExBase(file, line) {
    setReason(text ? text : "");
}
ExAssertionFailed::~ExAssertionFailed() = default;

ExProgramAborted::ExProgramAborted(char const* file, int line, char const* text)
    : ExBase(file, line) {
    setReason(text ? text : "");
}
ExProgramAborted::~ExProgramAborted() = default;

ExNullPtr::ExNullPtr(char const* file, int line, char const* typeName) : ExBase(file, line) {
    setReason(std::string("Null pointer of type ") + (typeName ? typeName : "?"));
}
ExNullPtr::~ExNullPtr() = default;

ExCastFailed::ExCastFailed(char const* file, int line, char const* fromType, char const* toType)
    : ExBase(file, line) {
    setReason(std::string("Cannot cast ") + (fromType ? fromType : "?") + " to " +
              (toType ? toType : "?"));
}
ExCastFailed::~ExCastFailed() = default;

OPtrRet<ExBase> ExWrapper::cloneCurrent() {
    try {
        throw;
    } catch (ExBase const& e) {
        return e.clone();
    } catch (std::exception const& e) {
        return wrapStd(e);
    } catch (...) {
        return wrapUnknown();
    }
}

OPtrRet<ExBase> ExWrapper::wrapStd(std::exception const& e) {
    return OPtrRet<ExBase>(new ExInternalError(__FILE__, __LINE__, e.what()));
}

OPtrRet<ExBase> ExWrapper::wrapUnknown() {
    return OPtrRet<ExBase>(new ExInternalError(__FILE__, __LINE__, "unknown exception"));
}

void ExStdout::printAtomically(std::string const& text) {
    static std::mutex lock;
    std::lock_guard g(lock);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (text.empty() || text.back() != '\n')
        std::fputc('\n', stdout);
    std::fflush(stdout);
}

void Assertions::throwAssertionFailed(char const* file, int line, char const* text) {
    throw ExAssertionFailed(file, line, text);
}

void Assertions::throwProgramAborted(char const* file, int line, char const* text) {
    throw ExProgramAborted(file, line, text);
}

void RCExUtil::throwExNullPtr(char const* typeName) {
    throw ExNullPtr(__FILE__, __LINE__, typeName);
}

void RCExUtil::throwExCastFailed(char const* fromType, char const* toType) {
    throw ExCastFailed(__FILE__, __LINE__, fromType, toType);
}

} // namespace Vn
