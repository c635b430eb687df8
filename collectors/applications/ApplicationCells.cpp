// SPDX-License-Identifier: Apache-2.0
#include "collectors/applications/ApplicationCells.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>
#include <vector>

namespace meridal {

namespace {

constexpr double thousandths = 1000;

std::int64_t inThousandths(double figure)
{
    constexpr double most = 9e15; // 285,000 years of seconds
    return static_cast<std::int64_t>(std::llround(std::clamp(figure, 0.0, most / thousandths) * thousandths));
}

std::int64_t whole(std::uint64_t count)
{
    return static_cast<std::int64_t>(std::min<std::uint64_t>(count, std::uint64_t{1} << 62));
}

double ones(std::int64_t inThousandths) { return static_cast<double>(inThousandths) / thousandths; }

} // namespace

WholeSums WholeSums::of(const GroupSums& sums)
{
    WholeSums result;
    result.figures = {inThousandths(sums.cpuUserSeconds), inThousandths(sums.cpuSystemSeconds), whole(sums.bytesRead),
        whole(sums.bytesWritten), whole(sums.bytesReceived), whole(sums.bytesSent), whole(sums.wakeups),
        inThousandths(sums.energyScore), inThousandths(sums.joules.value_or(0)), whole(sums.processesStarted),
        whole(sums.processesEnded)};
    result.knowsJoules = sums.joules.has_value();
    return result;
}

GroupSums WholeSums::groupSums() const
{
    const auto count = [this](SumColumn column) { return static_cast<std::uint64_t>((*this)[column]); };
    GroupSums sums;
    sums.cpuUserSeconds = ones((*this)[SumColumn::CpuUser]);
    sums.cpuSystemSeconds = ones((*this)[SumColumn::CpuSystem]);
    sums.bytesRead = count(SumColumn::BytesRead);
    sums.bytesWritten = count(SumColumn::BytesWritten);
    sums.bytesReceived = count(SumColumn::BytesReceived);
    sums.bytesSent = count(SumColumn::BytesSent);
    sums.wakeups = count(SumColumn::Wakeups);
    sums.energyScore = ones((*this)[SumColumn::EnergyScore]);
    if (knowsJoules) {
        sums.joules = ones((*this)[SumColumn::Millijoules]);
    }
    sums.processesStarted = count(SumColumn::Started);
    sums.processesEnded = count(SumColumn::Ended);
    return sums;
}

WholeSums& WholeSums::operator+=(const WholeSums& other)
{
    for (std::size_t column = 0; column < figures.size(); ++column) {
        figures[column] += other.figures[column];
    }
    knowsJoules = knowsJoules || other.knowsJoules;
    return *this;
}

ApplicationCell& ApplicationCell::operator+=(const ApplicationCell& other)
{
    sums += other.sums;
    byteSeconds += other.byteSeconds;
    seconds += other.seconds;
    memoryPeak = std::max(memoryPeak, other.memoryPeak);
    processesPeak = std::max(processesPeak, other.processesPeak);
    return *this;
}

double rankOf(const WholeSums& sums, double meanMemory, RankedBy ranking)
{
    const auto both = [&sums](SumColumn one, SumColumn other) { return static_cast<double>(sums[one] + sums[other]); };
    switch (ranking) {
    case RankedBy::Cpu:
        return both(SumColumn::CpuUser, SumColumn::CpuSystem);
    case RankedBy::Memory:
        return meanMemory;
    case RankedBy::Disk:
        return both(SumColumn::BytesRead, SumColumn::BytesWritten);
    case RankedBy::Network:
        return both(SumColumn::BytesReceived, SumColumn::BytesSent);
    case RankedBy::Energy: // joules share the package's by CPU time; the score knows of wake-ups, too
        return static_cast<double>(sums[SumColumn::EnergyScore]);
    }
    return 0;
}

void foldSmall(ApplicationCells& cells, std::size_t largest, const ApplicationPtr& other)
{
    std::unordered_set<ApplicationPtr> kept;
    std::vector<std::pair<double, ApplicationPtr>> ranked;
    for (const RankedBy ranking : rankings) {
        ranked.clear();
        for (const auto& [application, cell] : cells) {
            const double rank = rankOf(cell.sums, cell.meanMemory(), ranking);
            if (application->kind == GroupKind::Kernel) {
                kept.insert(application);
            } else if (application != other && rank > 0) {
                ranked.emplace_back(rank, application);
            }
        }
        const std::size_t count = std::min(largest, ranked.size());
        const auto isLarger = [](const auto& left, const auto& right) {
            return left.first != right.first ? left.first > right.first
                                             : left.second->identity < right.second->identity;
        };
        std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(count), ranked.end(), isLarger);
        for (std::size_t place = 0; place < count; ++place) {
            kept.insert(ranked[place].second);
        }
    }
    ApplicationCell rest;
    double covered = 0; // `other` was there as long as anybody: what it holds is the sum of its parts
    for (auto each = cells.begin(); each != cells.end();) {
        covered = std::max(covered, each->second.seconds);
        if (kept.contains(each->first)) {
            ++each;
        } else {
            rest += each->second;
            each = cells.erase(each);
        }
    }
    rest.seconds = covered;
    rest.memoryPeak = 0; // of parts that had theirs at different times
    rest.processesPeak = 0;
    cells[other] = rest;
}

} // namespace meridal
