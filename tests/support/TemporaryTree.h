// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace meridal::test {

/// A folder of files that goes away with the object: a recorded piece of /proc or /sys.
class TemporaryTree {
public:
    using File = std::pair<std::string_view, std::string_view>; ///< path below the root, content

    /// Memory, where the system has a file system in it: for tests that would wait for the disk thousands of times.
    enum class Place { Disk, Memory };

    TemporaryTree(std::initializer_list<File> files = {}) : TemporaryTree(Place::Disk)
    {
        for (const auto& [path, content] : files) {
            write(path, content);
        }
    }
    explicit TemporaryTree(Place place)
    {
        const bool inMemory = place == Place::Memory && std::filesystem::is_directory("/dev/shm");
        const auto parent = inMemory ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path();
        std::string pattern = (parent / "meridal-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) {
            throw std::runtime_error("no temporary folder");
        }
        root_ = std::filesystem::canonical(pattern); // what others call it: /tmp is a link on some systems
    }
    ~TemporaryTree()
    {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    TemporaryTree(const TemporaryTree&) = delete;
    TemporaryTree& operator=(const TemporaryTree&) = delete;

    const std::filesystem::path& root() const { return root_; }

    std::string path(std::string_view name) const { return (root_ / name).string(); }
    /// What a file holds; nothing when there is none.
    std::string read(std::string_view path) const
    {
        std::ifstream file(root_ / path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// Writes a file, with the folders that lead to it.
    void write(std::string_view path, std::string_view content) const
    {
        std::filesystem::create_directories((root_ / path).parent_path());
        std::ofstream(root_ / path, std::ios::binary) << content;
    }
    void link(std::string_view path, const std::filesystem::path& target) const
    {
        std::filesystem::create_directories((root_ / path).parent_path());
        std::filesystem::create_symlink(target, root_ / path);
    }
    void remove(std::string_view path) const { std::filesystem::remove_all(root_ / path); }

private:
    std::filesystem::path root_;
};

} // namespace meridal::test
