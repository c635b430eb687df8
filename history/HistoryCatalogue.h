#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

class StatCollector;

/// One thing whose history clients can ask for.
struct HistorySeries {
    std::string key;                 ///< of the collector's item; empty when the samples are the collector's own
    std::string name;                ///< for people
    std::string unit;                ///< "°C", "V", "A", "W", "rpm", "%"; empty for plain numbers
    std::vector<std::string> values; ///< the columns of its samples, by their names in the collector's "addSampleMap"
    /// Clients other than root get values rounded to multiples of this; 0: as they are. For figures whose last digits
    /// tell what other users' programs do.
    double step = 0;
    std::string origin = {}; ///< a sensor's chip, a disk's device; not for clients
};

/// Which collectors keep history, and of what. Main queue only.
class HistoryCatalogue {
public:
    using Describe = std::function<std::vector<HistorySeries>()>;
    struct Entry {
        StatCollector* collector = nullptr;
        Describe describe;
    };

    /// Offers a collector's history under a name: lower-case letters, which name its series together with their keys. The
    /// collector must outlive the catalogue's use.
    void add(std::string name, StatCollector& collector, Describe describe)
    {
        entries_.insert_or_assign(std::move(name), Entry{&collector, std::move(describe)});
    }
    const std::map<std::string, Entry, std::less<>>& entries() const { return entries_; }

private:
    std::map<std::string, Entry, std::less<>> entries_;
};

} // namespace meridal
