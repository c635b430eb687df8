// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <cstddef>
#include <filesystem>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// The files of one chip, kept open between readings, and what they said last. A reading may hang in the driver; it is
/// made on a thread that can be spared, while others ask for what there is. Thread-safe.
class HwmonReader {
public:
    struct File {
        std::string name;  ///< in the chip's folder
        std::string fault; ///< the file that holds 1 while this one means nothing; empty without one
        double units = 1;  ///< how many of its units are one of ours
    };

    /// `device` is the folder of what the chip belongs to. While that is suspended by the system, its files are left
    /// alone, as reading one would wake it, and all figures are absent.
    HwmonReader(std::filesystem::path folder, std::vector<File> files, const std::filesystem::path& device);

    // Times are seconds of the clock that cannot step.

    /// Asks that the file be read at the next readings; a figure is good for so many seconds.
    void want(std::size_t file, double now, double goodFor);
    /// Whether a figure that is still good has been read, be it an absent one.
    bool isFresh(std::size_t file, double now) const;
    /// What was read last; absent when that was too long ago: the chip hangs.
    std::optional<double> latest(std::size_t file, double now) const;
    /// Whether the file of the fault said so when the file was read last.
    bool isFaulty(std::size_t file, double now) const;

    /// The system's error that the last reading of the file ended in; 0 when it was read, and where a driver says that it has
    /// no figure at the moment or its device has gone.
    int trouble(std::size_t file, double now) const;

    /// Whether a reading is to be made now: something wanted is not fresh, and no reading is in progress. The caller
    /// then owes one call of read().
    bool beginReading(double now);
    /// Reads what is wanted and not fresh. Takes as long as the driver does.
    void read(double now);

private:
    struct Figure {
        std::optional<double> value;
        double readAt = -std::numeric_limits<double>::infinity();
        double wantedUntil = -std::numeric_limits<double>::infinity();
        double goodFor = 0;
        bool isFaulty = false;
        int error = 0;
        bool isDue(double now) const { return wantedUntil >= now && now - readAt >= goodFor; }
    };
    struct Reading {
        std::optional<double> value;
        bool isFaulty = false;
        int error = 0;
    };
    struct OpenFile {
        Descriptor input;
        Descriptor fault;
    };
    std::vector<std::size_t> takeDue(double now);
    Reading readFile(std::size_t file);
    bool isSuspended();

    const std::filesystem::path folder_;
    const std::vector<File> files_;
    const std::filesystem::path status_; ///< of the device's power; may be missing
    std::vector<OpenFile> open_;         ///< only read() touches it and the next, one call at a time
    Descriptor openStatus_;
    mutable std::mutex mutex_;
    std::vector<Figure> figures_;
    bool underway_ = false;
};

/// A figure as a driver prints it: a whole number and nothing else. Absent for anything else.
std::optional<double> parseHwmonFigure(std::string_view text);

} // namespace meridal
