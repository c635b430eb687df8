// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/views/Reasons.h"

#include <string>
#include <string_view>

namespace meridal {

// What the rules of all complaints share.

using AmountText = std::string (*)(double amount);

/// The figure at the end of a path of entries.
std::optional<double> figureAt(const Value& from, std::initializer_list<std::string_view> path);

/// "2.3 cores", "40 % of a core"; takes % of one core.
std::string coresText(double percent);
/// "43 %"; one decimal below 10.
std::string shareText(double percent);
std::string degreesText(double degrees);

/// Since when a figure has been at or above a threshold, short interruptions aside; nothing when it is not, or when nobody
/// knows.
struct Lasting {
    double since = 0;      ///< s since 1970
    bool isLonger = false; ///< it may have been so before what is known
};
std::optional<Lasting> lastingOf(const Evidence& evidence, const std::string& course, double threshold);
/// ", for 12 min" or ", for at least 59 min"; nothing when it is not known.
std::string lastingText(const Evidence& evidence, const std::optional<Lasting>& lasting);
/// The middle one of a course's figures.
std::optional<double> usualOf(const Evidence& evidence, const std::string& course);

/// "make (5.1 cores) and cc1plus (1.2 cores)": who takes at least a tenth of what the largest takes and `least`, up to
/// three. Nothing when nobody does.
std::string consumersText(const Consumers& consumers, AmountText amount, double least);
/// A sentence with a blank in front, " Most of it is used by make (5.1 cores).", from its first words; or nothing.
std::string mostBy(std::string_view words, const Consumers& consumers, AmountText amount, double least);
/// "uses" or "used".
std::string_view tense(const Evidence& evidence, std::string_view now, std::string_view then);
/// The sentence about who used the processors over the last minutes, if that is known.
void addRecent(const Evidence& evidence, std::string_view what, Verdict& verdict);

void judgeHot(const Evidence& evidence, Verdict& verdict);
void judgeLoud(const Evidence& evidence, Verdict& verdict);
void judgeSlow(const Evidence& evidence, Verdict& verdict);
void judgeDraining(const Evidence& evidence, Verdict& verdict);
void judgeBusyDisk(const Evidence& evidence, Verdict& verdict);
void judgeBusyNetwork(const Evidence& evidence, Verdict& verdict);
void judgeMemory(const Evidence& evidence, Verdict& verdict);

/// What keeps the machine busy, as a cause of heat and noise. False when it is not busy.
bool addLoad(const Evidence& evidence, Verdict& verdict);
/// The sentence about a disk that is at its limits.
std::string diskText(const Evidence& evidence, const Value& disk);
/// The disk that is busiest; null when none is told.
const Value* busiestDisk(const Evidence& evidence);

} // namespace meridal
