#include "InSingleton.h"

#include <string>

namespace Vn {

namespace {
std::string named(char const* className) {
    return className ? className : "singleton";
}
} // namespace

InSingletonEx::ExNotInitialized::ExNotInitialized(char const* file, int line, char const* className)
    : ExBase(file, line) {
    setReason(named(className) + " is not initialized");
}
InSingletonEx::ExNotInitialized::~ExNotInitialized() = default;

InSingletonEx::ExAlreadyInitialized::ExAlreadyInitialized(char const* file, int line,
                                                          char const* className)
    : ExBase(file, line) {
    setReason(named(className) + " is already initialized");
}
InSingletonEx::ExAlreadyInitialized::~ExAlreadyInitialized() = default;

InSingletonEx::ExAlreadyDestroyed::ExAlreadyDestroyed(char const* file, int line,
                                                      char const* className)
    : ExBase(file, line) {
    setReason(named(className) + " has been destroyed and cannot be used again");
}
InSingletonEx::ExAlreadyDestroyed::~ExAlreadyDestroyed() = default;

} // namespace Vn
