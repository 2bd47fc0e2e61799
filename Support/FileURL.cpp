#include "Support/FileURL.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace corvane {
namespace {

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string homeFolder(const std::string& user) {
    if (user.empty()) {
        if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    }
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (user.empty()) {
        getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    } else {
        getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
    }
    return found != nullptr ? found->pw_dir : "";
}

} // namespace

std::string lastPathComponent(const FileURL& url) {
    const std::string path = withoutTrailingSlashes(url.string());
    const auto slash = path.rfind('/');
    return slash == std::string::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

std::string pathExtension(const FileURL& url) {
    const std::string name = lastPathComponent(url);
    const auto dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot + 1);
}

FileURL deletingLastPathComponent(const FileURL& url) {
    return FileURL(withoutTrailingSlashes(url.string())).parent_path();
}

FileURL deletingPathExtension(const FileURL& url) {
    std::string path = withoutTrailingSlashes(url.string());
    const std::string extension = pathExtension(url);
    if (!extension.empty()) path.resize(path.size() - extension.size() - 1);
    return path;
}

FileURL replacingPathExtension(const FileURL& url, std::string_view extension) {
    return deletingPathExtension(url).string() + "." + std::string(extension);
}

std::string expandingTilde(const std::string& path) {
    if (path.empty() || path.front() != '~') return path;
    const auto slash = path.find('/');
    const std::string user = path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
    const std::string home = homeFolder(user);
    if (home.empty()) return path;
    return slash == std::string::npos ? home : home + path.substr(slash);
}

FileURL standardized(const FileURL& url) {
    const std::string path = url.string();
    const bool absolute = !path.empty() && path.front() == '/';
    std::vector<std::string> components;
    for (std::size_t start = 0; start <= path.size();) {
        const auto end = std::min(path.find('/', start), path.size());
        std::string component = path.substr(start, end - start);
        if (component == "..") {
            if (!components.empty() && components.back() != "..") {
                components.pop_back();
            } else if (!absolute) {
                components.push_back(std::move(component));
            }
        } else if (!component.empty() && component != ".") {
            components.push_back(std::move(component));
        }
        start = end + 1;
    }
    std::string result = absolute ? "/" : "";
    for (std::size_t index = 0; index < components.size(); ++index) {
        if (index > 0) result += '/';
        result += components[index];
    }
    return result;
}

} // namespace corvane
