// SPDX-License-Identifier: Apache-2.0
#pragma once

/// From which figures on a check complains where the configuration names none, known to both sides: a daemon that is older
/// than its client tells none.
namespace meridal::checkLimits {

constexpr double diskWearWarning = 90;      ///< % of the rated life used up
constexpr double diskWearCritical = 100;    ///< likewise
constexpr double diskErrorsWarning = 1;     ///< lost sectors, or errors of its memory
constexpr double batteryHealthWarning = 60; ///< %, below it
constexpr double upsChargeCritical = 20;    ///< %, while it is drained
constexpr double alertLooks = 2;            ///< in a row, before a change counts
constexpr double alertInterval = 60;        ///< s between looks

} // namespace meridal::checkLimits
