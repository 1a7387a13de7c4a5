#include "OsFilePath.h"

#include "ExBase.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Vn {

namespace {
// The parts between "/"s, empty ones dropped.
std::vector<std::string> partsOf(std::string const& path) {
    std::vector<std::string> parts;
    std::size_t i = 0;
    while (i < path.size()) {
        std::size_t j = path.find('/', i);
        if (j == std::string::npos)
            j = path.size();
        if (j > i)
            parts.push_back(path.substr(i, j - i));
        i = j + 1;
    }
    return parts;
}
std::string trimmed(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}
// Position of the "." that starts the extension of a file name, or npos.
std::size_t extensionDot(std::string const& name) {
    std::size_t dot = name.rfind('.');
    return dot == 0 || dot == std::string::npos ? std::string::npos : dot;
}
} // namespace

OsFilePath OsFilePath::getRoot() const {
    return OsFilePath(isAbsolute() ? "/" : "");
}

OsFilePath OsFilePath::getParent() const {
    std::string p = trimmed(_path);
    std::size_t slash = p.rfind('/');
    if (slash == std::string::npos)
        return OsFilePath();
    if (slash == 0)
        return OsFilePath("/");
    return OsFilePath(trimmed(p.substr(0, slash)));
}

std::string OsFilePath::getFileName() const {
    std::string p = trimmed(_path);
    if (p == "/")
        return {};
    std::size_t slash = p.rfind('/');
    return slash == std::string::npos ? p : p.substr(slash + 1);
}

std::string OsFilePath::getBaseName(BaseNameExtension extension) const {
    std::string name = getFileName();
    if (extension == WITH_EXTENSION)
        return name;
    std::size_t dot = extensionDot(name);
    return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string OsFilePath::getExtension() const {
    std::string name = getFileName();
    std::size_t dot = extensionDot(name);
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

OsFilePath OsFilePath::append(std::string const& part) const {
    if (_path.empty())
        return OsFilePath(part);
    if (part.empty())
        return *this;
    bool const slashHere = _path.back() == '/';
    bool const slashThere = part.front() == '/';
    if (slashHere && slashThere)
        return OsFilePath(_path + part.substr(1));
    return OsFilePath(_path + (slashHere || slashThere ? "" : "/") + part);
}

OsFileTypes::Permissions::Permissions(int ownerBits, int groupBits, int otherBits)
    : owner(ownerBits), group(groupBits), others(otherBits) {
    for (int p : {owner, group, others})
        if (p < 0 || p > (READ | WRITE | EXECUTE))
            VN_THROW_MSG(ExBase, "a permission is a sum of 1 (read), 2 (write) and 4 "
                                 "(execute), not " +
                                     std::to_string(p));
}

unsigned OsFileTypes::Permissions::toMode(bool folder) const noexcept {
    auto bits = [folder](int p) {
        unsigned m = 0;
        if (p & READ)
            m |= 4u | (folder ? 1u : 0u);
        if (p & WRITE)
            m |= 2u;
        if (p & EXECUTE)
            m |= 1u;
        return m;
    };
    return bits(owner) << 6 | bits(group) << 3 | bits(others);
}

bool OsFsUtils::fileExists(OsFilePath const& path) {
    struct stat st {};
    return !path.isEmpty() && ::stat(path.getString().c_str(), &st) == 0;
}

bool OsFsUtils::isFolder(OsFilePath const& path) {
    struct stat st {};
    return !path.isEmpty() && ::stat(path.getString().c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void OsFsUtils::createFilePath(OsFilePath const& path, OsFilePath const& root,
                               OsFileTypes::Permissions permissions) {
    std::vector<std::string> const folders = partsOf(path.getParent().getString());
    std::vector<std::string> const rootParts = partsOf(root.getString());
    bool const under = path.isAbsolute() == root.isAbsolute() &&
                       rootParts.size() <= folders.size() &&
                       std::equal(rootParts.begin(), rootParts.end(), folders.begin());
    if (!under)
        VN_THROW_MSG(ExBase, "the path \"" + path.getString() + "\" does not lie under \"" +
                                 root.getString() + "\"");
    OsFilePath at = root;
    for (std::size_t i = rootParts.size(); i < folders.size(); ++i) {
        at = at.append(folders[i]);
        if (isFolder(at))
            continue;
        if (fileExists(at))
            VN_THROW_MSG(ExBase,
                         "cannot make the folder \"" + at.getString() + "\": a file stands there");
        if (::mkdir(at.getString().c_str(), permissions.toMode(true)) != 0) {
            int const error = errno;
            if (error != EEXIST || !isFolder(at))
                VN_THROW_MSG(ExBase, "cannot make the folder \"" + at.getString() +
                                         "\": " + std::strerror(error));
        }
    }
}

} // namespace Vn
