// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace meridal::test {

/// A SQLite file system on top of the system's own, registered under a name for as long as it lives. It can make every
/// n-th write fail, and it knows which writes a power loss would take: all those after the file's last sync. The files are
/// the system's own objects, with other methods where it matters.
class FaultyVfs {
public:
    explicit FaultyVfs(std::string name) : name_(std::move(name)), real_(sqlite3_vfs_find(nullptr))
    {
        vfs_ = *real_;
        vfs_.pNext = nullptr;
        vfs_.zName = name_.c_str();
        vfs_.pAppData = this;
        vfs_.xOpen = &FaultyVfs::open;
        vfs_.xDelete = &FaultyVfs::remove;
        sqlite3_vfs_register(&vfs_, 0);
    }
    ~FaultyVfs() { sqlite3_vfs_unregister(&vfs_); }
    FaultyVfs(const FaultyVfs&) = delete;
    FaultyVfs& operator=(const FaultyVfs&) = delete;

    /// From now on every n-th write or sync fails with this code; 0 = none does.
    void failEvery(int nth, int code = SQLITE_IOERR_WRITE)
    {
        nth_ = nth;
        code_ = code;
        count_ = 0;
    }

    /// Runs whenever a database is opened: what makes time pass there stands for a slow disk.
    std::function<void()> whenOpened;

    /// Writes the files as a disk might hold them if the power failed now: what was synced, and of each later write it
    /// is left to chance whether it arrived.
    void powerLoss(const std::filesystem::path& from, const std::filesystem::path& to, std::mt19937& random) const
    {
        for (const char* part : {"", "-wal"}) {
            const auto found = disks_.find(from.string() + part);
            if (found == disks_.end()) {
                continue;
            }
            std::string content = found->second.synced;
            const bool allLost = random() % 3 == 0;
            for (const Write& write : found->second.unsynced) {
                if (!allLost && random() % 4 != 0) {
                    apply(content, write);
                }
            }
            std::ofstream(to.string() + part, std::ios::binary) << content;
        }
    }

private:
    struct Write {
        std::size_t offset = 0;
        std::string bytes;
    };
    struct Disk {
        std::string synced;
        std::vector<Write> unsynced;
    };
    /// What is known of an open file.
    struct File {
        FaultyVfs* vfs = nullptr;
        Disk* disk = nullptr; ///< null for files that SQLite does not name
        const sqlite3_io_methods* real = nullptr;
    };

    static void apply(std::string& content, const Write& write)
    {
        content.resize(std::max(content.size(), write.offset + write.bytes.size()));
        content.replace(write.offset, write.bytes.size(), write.bytes);
    }
    static FaultyVfs& of(sqlite3_vfs* vfs) { return *static_cast<FaultyVfs*>(vfs->pAppData); }
    bool fails() { return nth_ > 0 && ++count_ % nth_ == 0; }

    static int open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags)
    {
        if (of(vfs).whenOpened && (flags & SQLITE_OPEN_MAIN_DB) != 0) {
            of(vfs).whenOpened();
        }
        const int code = of(vfs).real_->xOpen(of(vfs).real_, name, file, flags, outFlags);
        if (code == SQLITE_OK && file->pMethods) {
            opened()[file] = {&of(vfs), name ? &of(vfs).disks_[name] : nullptr, file->pMethods};
            file->pMethods = methods(*file->pMethods);
        }
        return code;
    }
    static int remove(sqlite3_vfs* vfs, const char* name, int sync)
    {
        of(vfs).disks_.erase(name);
        return of(vfs).real_->xDelete(of(vfs).real_, name, sync);
    }
    static int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
    {
        const File& known = opened().at(file);
        if (known.vfs->fails()) {
            return known.vfs->code_;
        }
        const int code = known.real->xWrite(file, bytes, count, offset);
        if (code == SQLITE_OK && known.disk) {
            known.disk->unsynced.push_back({static_cast<std::size_t>(offset),
                std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(count))});
        }
        return code;
    }
    static int truncate(sqlite3_file* file, sqlite3_int64 size)
    {
        const File& known = opened().at(file);
        const int code = known.real->xTruncate(file, size);
        if (code == SQLITE_OK && known.disk) { // taken as durable at once
            settle(*known.disk);
            known.disk->synced.resize(static_cast<std::size_t>(size));
        }
        return code;
    }
    static int sync(sqlite3_file* file, int flags)
    {
        const File& known = opened().at(file);
        if (known.vfs->fails()) {
            return SQLITE_IOERR_FSYNC;
        }
        const int code = known.real->xSync(file, flags);
        if (code == SQLITE_OK && known.disk) {
            settle(*known.disk);
        }
        return code;
    }
    static void settle(Disk& disk)
    {
        for (const Write& write : disk.unsynced) {
            apply(disk.synced, write);
        }
        disk.unsynced.clear();
    }

    static std::map<sqlite3_file*, File>& opened()
    {
        static std::map<sqlite3_file*, File> files;
        return files;
    }
    /// The system's own methods but for those that write.
    static const sqlite3_io_methods* methods(const sqlite3_io_methods& real)
    {
        static std::map<const sqlite3_io_methods*, sqlite3_io_methods> tables;
        sqlite3_io_methods& table = tables.try_emplace(&real, real).first->second;
        table.iVersion = 2; // no memory-mapped reads and writes past these
        table.xWrite = &FaultyVfs::write;
        table.xTruncate = &FaultyVfs::truncate;
        table.xSync = &FaultyVfs::sync;
        table.xDeviceCharacteristics = [](sqlite3_file*) { return 0; }; // nothing beyond what a plain disk promises
        return &table;
    }

    std::string name_;
    sqlite3_vfs* real_;
    sqlite3_vfs vfs_{};
    std::map<std::string, Disk> disks_;
    int nth_ = 0;
    int code_ = SQLITE_IOERR_WRITE;
    int count_ = 0;
};

} // namespace meridal::test
