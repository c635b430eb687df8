// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

MAC_TEXT(kIOServicePlane, "IOService");
MAC_TEXT(kIOProviderClassKey, "IOProviderClass");
MAC_TEXT(kIOPropertyMatchKey, "IOPropertyMatch");
MAC_TEXT(kIOPropertyExistsMatchKey, "IOPropertyExistsMatch");
MAC_TEXT(kIORegistryEntryIDKey, "IORegistryEntryID");
MAC_TEXT(kIOUserClientCreatorKey, "IOUserClientCreator");
MAC_TEXT(kIOPublishNotification, "IOServicePublish");
MAC_TEXT(kIOFirstMatchNotification, "IOServiceFirstMatch");
MAC_TEXT(kIOTerminatedNotification, "IOServiceTerminate");
