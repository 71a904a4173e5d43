#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace rehearse {

/// A failure's sentence for a person; of a failed operation on a file, its item and reason.
std::string sentenceOf(const std::exception& failure);

/// Writes a file, with the directories above it.
void writeFile(const std::filesystem::path& path, std::string_view content);

std::string readFile(const std::filesystem::path& path);

/// Removes a file, a link or a tree, if it is there; directories of the caller that forbid changes too.
/// Throws `platform::Error`.
void removeItem(const std::filesystem::path& path);

/// Copies a directory with everything in it, links as links.
void copyTree(const std::filesystem::path& from, const std::filesystem::path& to);

/// The content as an inventory gives it.
std::string digestWhereLong(const std::string& content);

/// Every entry below `root`, by its relative path: type, permissions, and content, where that is long its
/// length and SHA-256, or link text. `contentOf` gives the content of a regular file as `digestWhereLong`
/// does. Names count as the same when they are canonically equivalent, since file systems store them in
/// either form. Two trees are the same when their inventories are equal.
using Inventory = std::map<std::string, std::string>;
Inventory inventory(const std::filesystem::path& root);
Inventory inventory(const std::filesystem::path& root,
                    const std::function<std::string(const std::filesystem::path&)>& contentOf);

}  // namespace rehearse
