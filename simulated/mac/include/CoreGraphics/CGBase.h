// SPDX-License-Identifier: Apache-2.0
#pragma once

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using CGFloat = double;
#endif

static_assert(sizeof(CGFloat) == sizeof(double));
