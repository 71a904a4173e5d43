#include "platform/files/url.hpp"

#include <filesystem>
#include <system_error>

namespace platform {
namespace {

std::string withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/')
    path.remove_suffix(1);
  return std::string(path);
}

std::string_view componentsAbove(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

/// The parent of an absolute path in which only the last component may be a link; the empty string is the
/// root.
std::string resolvedParent(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_symlink(path, error)) {
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    if (!error)
      return std::string(componentsAbove(real.native()));
  }
  return std::string(componentsAbove(path));
}

}  // namespace

URL URL::fileURLWithPath(std::string_view path) {
  if (!path.empty() && path.front() == '/')
    return URL(withoutTrailingSlashes(path));
  std::error_code error;
  std::string absolute = std::filesystem::current_path(error).native();
  if (error)
    return URL(withoutTrailingSlashes(path));
  if (absolute.back() != '/')
    absolute += '/';
  absolute += path;
  return URL(withoutTrailingSlashes(absolute));
}

std::string URL::lastPathComponent() const {
  return path_ == "/" ? path_ : path_.substr(path_.rfind('/') + 1);
}

std::string URL::pathExtension() const {
  const std::string name = lastPathComponent();
  const auto dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

URL URL::deletingLastPathComponent() const {
  const std::string name = lastPathComponent();
  if (name == "." || name == "..")
    return URL(path_ + "/..");
  const std::string_view parent = componentsAbove(path_);
  if (path_.find('/') == std::string::npos)
    return URL(std::string("."));
  return URL(parent.empty() ? std::string("/") : withoutTrailingSlashes(parent));
}

URL URL::appendingPathComponent(std::string_view text) const {
  std::string path = path_;
  if (path.empty() || path.back() != '/')
    path += '/';
  path += text;
  return URL(withoutTrailingSlashes(path));
}

URL URL::standardizedFileURL() const {
  if (path_.empty() || path_.front() != '/')
    return *this;
  std::string standard;
  std::string_view rest = path_;
  while (!rest.empty()) {
    rest.remove_prefix(1);
    const std::string_view component = rest.substr(0, rest.find('/'));
    rest.remove_prefix(component.size());
    if (component == "..")
      standard = resolvedParent(standard);
    else if (!component.empty() && component != ".")
      standard.append("/").append(component);
  }
  return URL(standard.empty() ? std::string("/") : standard);
}

}  // namespace platform
