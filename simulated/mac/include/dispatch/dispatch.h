// SPDX-License-Identifier: Apache-2.0
#pragma once

// Of libdispatch only the name of the main queue: who is given it is called by SimulatedMac::deliver().

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using dispatch_queue_t = struct dispatch_queue_s*;

dispatch_queue_t dispatch_get_main_queue();
#endif
