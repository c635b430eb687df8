// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/GroupSums.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace meridal {

/// So many groups by name, and all others as one, for who asks again and again and draws a line of each: every counter only
/// grows from answer to answer. What a group uses belongs to it while it is named and to "other" while it is not; one that
/// is named again goes on where it was. So whatever was told last of everybody adds up to what all have used.
///
/// Named are those with the largest shares of late in processor time, disk, network, memory and energy together. One comes
/// in for another only when it has been clearly ahead of it for a minute and still runs, so that names do not come and go
/// with every peak.
///
/// Half a KB for each group in the table, and for each of up to `mostKept` more that have left it: half a MB at most. Only
/// one that came back after so many others had been named would count from 0 again.
class LargestGroups {
public:
    explicit LargestGroups(std::size_t count) : count_(count) { }

    /// `totals`: of all groups that are to be looked at, any order, each with what it has used since it is in the table; those
    /// that are gone from it have been folded into its "other". `now` in monotonic s, `age` how long they have been counting
    /// at the first time. The answer: "other", the kernel where there is one, and the named ones in the order in which they
    /// came up. Valid until the next call.
    const std::vector<GroupTotals>& take(std::span<const GroupTotals* const> totals, double now, double age);
    /// The next totals count from 0 again.
    void startOver();

    static constexpr std::size_t mostKept = 512;
    static constexpr double memory = 900;       ///< s in which what has been counts for a third
    static constexpr double aheadFor = 60;      ///< s that one must have been ahead before it comes in
    static constexpr double clearlyMore = 1.25; ///< times the score of whom it replaces

private:
    /// The counters of GroupSums.
    struct Figures {
        std::array<double, 12> counts = {};
        bool knowsJoules = false;
        bool knowsGraphics = false;

        static Figures of(const GroupSums& sums);
        GroupSums groupSums() const;
        Figures& operator+=(const Figures& other);
        /// What it is beyond `base`, which becomes the same.
        Figures takeGrowth(Figures& base) const;
    };
    struct Account {
        const GroupTotals* group = nullptr; ///< while a question lasts; null: it is not in the table
        std::uint32_t number = 0;           ///< in the table; 0: it was not there at the latest question
        std::uint64_t round = 0;            ///< of the latest question at which it was
        Figures base;                       ///< what it had then
        Figures growth;                     ///< since
        Figures told;                       ///< while it was named
        double score = 0;
        std::optional<double> aheadSince;
        double lastNamed = 0;
        bool isNamed = false;
        bool wasNamed = false;
    };
    using Candidates = std::vector<Account*>;

    void takeGrowth(std::span<const GroupTotals* const> totals);
    void takeGone(Figures& moved);
    void score(double now, double age);
    static bool isLarger(const Account* a, const Account* b);
    void fillRoom(double now);
    void attribute();
    void exchange(double now);
    static void name(Account& account, double now);
    void answer();

    const std::size_t count_;
    std::unordered_map<std::string, Account> accounts_; ///< by identity and owner
    Account kernel_;
    std::vector<Account*> present_; ///< those in the table at this question
    std::uint64_t round_ = 0;
    Figures otherBase_;   ///< of the table's
    Figures otherGrowth_; ///< what came to it, without what only moved there
    Figures otherTold_;
    GroupLevels otherNow_; ///< of the table's
    GroupLevels otherPeak_;
    std::optional<double> lastTime_; ///< monotonic s
    std::vector<GroupTotals> answer_;
};

/// One for each user and number that is asked for, as what is told must not hang on who else asks. Few, of half a MB at most each:
/// for another one, who has the most of them loses the one that was idle the longest; one that nobody has asked for in three
/// hours goes.
class LargestGroupsByAsker {
public:
    /// Who asks, whose groups only it may see (absent: everybody's), and how many groups.
    using Asker = std::tuple<std::optional<std::uint32_t>, std::optional<std::uint32_t>, std::size_t>;

    LargestGroups& of(const Asker& asker, double now);
    void forgetIdle(double now);
    void startOver();
    std::size_t size() const { return states_.size(); }

    static constexpr std::size_t mostStates = 8;
    static constexpr double idleFor = 3 * 3600.0; ///< s: people run things every hour

private:
    struct State {
        LargestGroups groups;
        double lastAsked = 0; ///< monotonic s
    };
    void makeRoom();

    std::map<Asker, State> states_;
};

} // namespace meridal
