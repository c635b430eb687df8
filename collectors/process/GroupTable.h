// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/GroupSums.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace meridal {

/// Who a group is.
struct GroupName {
    std::string identity = {};
    std::string name = {}; ///< for people
    std::optional<std::uint32_t> owner = {};
};

/// Where a group stands in the table. Another one may have its place since.
struct GroupPlace {
    std::uint32_t index = 0;
    std::uint32_t number = 0; ///< of the group

    bool operator==(const GroupPlace& other) const = default;
};

/// All groups and their sums, by place. There are never more than `mostGroups` beside the two that are always there: room for
/// another one is made by folding the least into "other", so that nothing that was counted is lost. A place whose group was folded
/// stands for "other" from then on: nobody has to look for those who hold one.
class GroupTable {
public:
    static constexpr std::size_t mostGroups = 512;
    static constexpr GroupPlace other{0, 0};
    static constexpr GroupPlace kernel{1, 1};

    GroupTable();

    /// The place of a group, which is made if need be. `hasProcesses`: some that live. `used`: by whoever comes with it, as
    /// use() counts. The place of "other" where all others have processes and have used more.
    GroupPlace placeFor(const GroupName& group, bool hasProcesses, double used);
    /// One of that identity, whoever owns it, if there is any.
    std::optional<GroupPlace> placeOf(const std::string& identity) const;
    bool isOther(const GroupPlace& place) const { return indexOf(place) == other.index; }

    GroupTotals& at(const GroupPlace& place) { return totals_[indexOf(place)]; }
    const GroupTotals& at(const GroupPlace& place) const { return totals_[indexOf(place)]; }
    /// s of CPU time in the current pass.
    double& passCpu(const GroupPlace& place) { return passCpu_[indexOf(place)]; }
    std::span<GroupTotals> all() { return totals_; }
    std::span<const double> allPassCpu() const { return passCpu_; } ///< in the same order
    std::span<const GroupTotals> totals() const { return totals_; }

    /// Forgets what is held now, but for how many processes there were, and what the pass has used; and from now on new groups know when they were made.
    void beginPass(double monotonicTime);
    /// Notes what is held now as the most, if it is.
    void notePeaks();

    /// How much a group has used, in a word: s of CPU time, where 100 MB moved count as one.
    static double use(const GroupSums& sums);

private:
    /// What decides who is folded: whether it is there, and what it has used.
    using Rank = std::pair<int, double>;

    std::uint32_t indexOf(const GroupPlace& place) const
    {
        return totals_[place.index].number == place.number ? place.index : other.index;
    }
    Rank rankOf(std::uint32_t index) const;
    std::optional<std::uint32_t> leastIndex(double used);
    void fold(std::uint32_t index);
    static std::string keyOf(const std::string& identity, const std::optional<std::uint32_t>& owner);

    std::vector<GroupTotals> totals_;
    std::vector<double> passCpu_;     ///< by index, as are the next two
    std::vector<double> lastPresent_; ///< monotonic s of the latest pass in which it had processes
    std::vector<double> brought_;     ///< what whoever came with it had used by then
    std::unordered_map<std::string, std::uint32_t> indices_; ///< by identity and owner
    std::optional<Rank> leastRank_;                          ///< in this pass nobody is below it
    std::uint32_t lastNumber_ = kernel.number;
    double now_ = 0;
};

} // namespace meridal
