// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using SCDynamicStoreRef = const struct __SCDynamicStore*;
using SCNetworkInterfaceRef = const struct __SCNetworkInterface*;
using SCNetworkSetRef = const struct __SCNetworkSet*;
using SCPreferencesRef = const struct __SCPreferences*;
using SCDynamicStoreCallBack = void (*)(SCDynamicStoreRef store, CFArrayRef keys, void* info);

struct SCDynamicStoreContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
};
#endif

MAC_CONSTANT(int, kSCStatusOK, 0);
MAC_CONSTANT(int, kSCStatusFailed, 1001);
MAC_CONSTANT(int, kSCStatusAccessError, 1003);
MAC_CONSTANT(int, kSCStatusNoKey, 1004);

extern const CFStringRef kSCNetworkInterfaceTypeBluetooth;
extern const CFStringRef kSCNetworkInterfaceTypeBond;
extern const CFStringRef kSCNetworkInterfaceTypeEthernet;
extern const CFStringRef kSCNetworkInterfaceTypeIEEE80211;
extern const CFStringRef kSCNetworkInterfaceTypeModem;
extern const CFStringRef kSCNetworkInterfaceTypePPP;
extern const CFStringRef kSCNetworkInterfaceTypeVLAN;
extern const CFStringRef kSCNetworkInterfaceTypeWWAN;
extern const CFStringRef kSCDynamicStorePropNetPrimaryInterface;
extern const CFStringRef kSCPropNetIPv4Router;
extern const CFStringRef kSCPropNetIPv6Router;
extern const CFStringRef kSCPrefCurrentSet;
extern const CFStringRef kSCPrefSets;

extern "C" {
int SCError();
const char* SCErrorString(int status);

SCDynamicStoreRef SCDynamicStoreCreate(
    CFAllocatorRef allocator, CFStringRef name, SCDynamicStoreCallBack callback, SCDynamicStoreContext* context);
Boolean SCDynamicStoreSetDispatchQueue(SCDynamicStoreRef store, dispatch_queue_t queue);
Boolean SCDynamicStoreSetNotificationKeys(SCDynamicStoreRef store, CFArrayRef keys, CFArrayRef patterns);
CFPropertyListRef SCDynamicStoreCopyValue(SCDynamicStoreRef store, CFStringRef key);

CFArrayRef SCNetworkInterfaceCopyAll();
CFStringRef SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface);
CFStringRef SCNetworkInterfaceGetHardwareAddressString(SCNetworkInterfaceRef interface);
CFStringRef SCNetworkInterfaceGetInterfaceType(SCNetworkInterfaceRef interface);
CFStringRef SCNetworkInterfaceGetLocalizedDisplayName(SCNetworkInterfaceRef interface);
Boolean SCNetworkInterfaceForceConfigurationRefresh(SCNetworkInterfaceRef interface);

SCPreferencesRef SCPreferencesCreate(CFAllocatorRef allocator, CFStringRef name, CFStringRef file);
Boolean SCPreferencesSetValue(SCPreferencesRef preferences, CFStringRef key, CFPropertyListRef value);
Boolean SCPreferencesCommitChanges(SCPreferencesRef preferences);
Boolean SCPreferencesApplyChanges(SCPreferencesRef preferences);
SCNetworkSetRef SCNetworkSetCopy(SCPreferencesRef preferences, CFStringRef identifier);
}
