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

/// All groups and their sums, by place. There are never more than `mostGroups` beside the two that are always there: room for
/// another one is made by folding the least into "other", so that nothing that was counted is lost.
class GroupTable {
public:
    static constexpr std::size_t mostGroups = 512;
    static constexpr std::uint32_t other = 0; ///< place and number
    static constexpr std::uint32_t kernel = 1;

    GroupTable();

    /// The place of a group, which is made if need be. `hasProcesses`: some that live. `used`: by whoever comes with it, as
    /// use() counts. The place of "other" where all others have processes and have used more.
    std::uint32_t placeFor(const GroupName& group, bool hasProcesses, double used);
    /// One of that identity, whoever owns it, if there is any.
    std::optional<std::uint32_t> placeOf(const std::string& identity) const;

    GroupTotals& at(std::uint32_t place) { return totals_[place]; }
    /// s of CPU time in the current pass.
    double& passCpu(std::uint32_t place) { return passCpu_[place]; }
    std::span<const GroupTotals> totals() const { return totals_; }
    std::size_t size() const { return totals_.size(); }

    /// What has another place since the last call: from, to, one after another.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> takeMoves() { return std::exchange(moves_, {}); }
    /// Forgets what is held now and what the pass has used; and from now on new groups know when they were made.
    void beginPass(double monotonicTime);
    /// Notes what is held now as the most, if it is.
    void notePeaks();

    /// How much a group has used, in a word: s of CPU time, where 100 MB moved count as one.
    static double use(const GroupSums& sums);

private:
    void fold(std::uint32_t place);
    std::optional<std::uint32_t> leastPlace(double used) const;
    static std::string keyOf(const std::string& identity, const std::optional<std::uint32_t>& owner);

    std::vector<GroupTotals> totals_;
    std::vector<double> passCpu_;     ///< by place, as is the next
    std::vector<double> lastPresent_; ///< monotonic s of the latest pass in which it had processes
    std::vector<std::pair<std::uint32_t, std::uint32_t>> moves_;
    std::unordered_map<std::string, std::uint32_t> places_; ///< by identity and owner
    std::uint32_t lastNumber_ = kernel;
    double now_ = 0;
};

} // namespace meridal
