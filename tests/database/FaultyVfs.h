#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace meridal::test {

/// A SQLite file system on top of the system's own, registered under a name for as long as it lives. It can make every
/// n-th write fail, and it knows which writes a power loss would take: all those after the file's last sync.
class FaultyVfs {
public:
    explicit FaultyVfs(std::string name) : name_(std::move(name)), real_(sqlite3_vfs_find(nullptr))
    {
        vfs_ = *real_;
        vfs_.pNext = nullptr;
        vfs_.zName = name_.c_str();
        vfs_.szOsFile = static_cast<int>(sizeof(File)) + real_->szOsFile;
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
    struct File {
        sqlite3_file base;
        FaultyVfs* vfs;
        Disk* disk; ///< null for files that SQLite does not name
        sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
    };

    static void apply(std::string& content, const Write& write)
    {
        content.resize(std::max(content.size(), write.offset + write.bytes.size()));
        content.replace(write.offset, write.bytes.size(), write.bytes);
    }
    static File* of(sqlite3_file* file) { return reinterpret_cast<File*>(file); }
    static FaultyVfs* of(sqlite3_vfs* vfs) { return static_cast<FaultyVfs*>(vfs->pAppData); }
    bool fails() { return nth_ > 0 && ++count_ % nth_ == 0; }

    static int open(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags)
    {
        File* const shim = of(file);
        shim->base.pMethods = nullptr;
        shim->vfs = of(vfs);
        shim->disk = name ? &of(vfs)->disks_[name] : nullptr;
        const int code = of(vfs)->real_->xOpen(of(vfs)->real_, name, shim->real(), flags, outFlags);
        if (code == SQLITE_OK) {
            shim->base.pMethods = methods();
        }
        return code;
    }
    static int remove(sqlite3_vfs* vfs, const char* name, int sync)
    {
        of(vfs)->disks_.erase(name);
        return of(vfs)->real_->xDelete(of(vfs)->real_, name, sync);
    }
    static int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
    {
        File* const shim = of(file);
        if (shim->vfs->fails()) {
            return shim->vfs->code_;
        }
        const int code = shim->real()->pMethods->xWrite(shim->real(), bytes, count, offset);
        if (code == SQLITE_OK && shim->disk) {
            shim->disk->unsynced.push_back({static_cast<std::size_t>(offset),
                std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(count))});
        }
        return code;
    }
    static int truncate(sqlite3_file* file, sqlite3_int64 size)
    {
        File* const shim = of(file);
        const int code = shim->real()->pMethods->xTruncate(shim->real(), size);
        if (code == SQLITE_OK && shim->disk) { // taken as durable at once
            settle(*shim->disk);
            shim->disk->synced.resize(static_cast<std::size_t>(size));
        }
        return code;
    }
    static int sync(sqlite3_file* file, int flags)
    {
        File* const shim = of(file);
        if (shim->vfs->fails()) {
            return SQLITE_IOERR_FSYNC;
        }
        const int code = shim->real()->pMethods->xSync(shim->real(), flags);
        if (code == SQLITE_OK && shim->disk) {
            settle(*shim->disk);
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

    template <auto Method, typename... Arguments>
    static int forward(sqlite3_file* file, Arguments... arguments)
    {
        return (of(file)->real()->pMethods->*Method)(of(file)->real(), arguments...);
    }
    static const sqlite3_io_methods* methods()
    {
        static const sqlite3_io_methods table = [] {
            using Methods = sqlite3_io_methods;
            Methods shim{};
            shim.iVersion = 2; // no memory-mapped reads and writes past this shim
            shim.xClose = [](sqlite3_file* file) { return forward<&Methods::xClose>(file); };
            shim.xRead = [](sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset) {
                return forward<&Methods::xRead>(file, bytes, count, offset);
            };
            shim.xWrite = &FaultyVfs::write;
            shim.xTruncate = &FaultyVfs::truncate;
            shim.xSync = &FaultyVfs::sync;
            shim.xFileSize = [](sqlite3_file* file, sqlite3_int64* size) {
                return forward<&Methods::xFileSize>(file, size);
            };
            shim.xLock = [](sqlite3_file* file, int lock) { return forward<&Methods::xLock>(file, lock); };
            shim.xUnlock = [](sqlite3_file* file, int lock) { return forward<&Methods::xUnlock>(file, lock); };
            shim.xCheckReservedLock = [](sqlite3_file* file, int* held) {
                return forward<&Methods::xCheckReservedLock>(file, held);
            };
            shim.xFileControl = [](sqlite3_file* file, int what, void* argument) {
                return forward<&Methods::xFileControl>(file, what, argument);
            };
            shim.xSectorSize = [](sqlite3_file* file) { return forward<&Methods::xSectorSize>(file); };
            // Nothing is promised beyond what a plain disk does.
            shim.xDeviceCharacteristics = [](sqlite3_file*) { return 0; };
            shim.xShmMap = [](sqlite3_file* file, int page, int size, int extend, void volatile** memory) {
                return forward<&Methods::xShmMap>(file, page, size, extend, memory);
            };
            shim.xShmLock = [](sqlite3_file* file, int offset, int count, int flags) {
                return forward<&Methods::xShmLock>(file, offset, count, flags);
            };
            shim.xShmBarrier = [](sqlite3_file* file) { of(file)->real()->pMethods->xShmBarrier(of(file)->real()); };
            shim.xShmUnmap = [](sqlite3_file* file, int remove) { return forward<&Methods::xShmUnmap>(file, remove); };
            return shim;
        }();
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
