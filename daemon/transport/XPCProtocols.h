// SPDX-License-Identifier: Apache-2.0
#pragma once

#import <Foundation/Foundation.h>

// The two protocols of the mach service, as clients declare them: selectors, argument and reply types are the interface,
// misspellings included. They share their names with the C++ classes behind them, which live in another name space.

@protocol DaemonProtocol
- (void)infoForPids:(NSArray<NSNumber*>*)pids reply:(void (^)(NSArray<NSDictionary*>*))reply;
- (void)version:(void (^)(float version, NSInteger build))reply;
- (void)fps:(void (^)(float framesPerSecond))reply;
- (void)exists:(void (^)(BOOL exists))reply;
- (void)enableHierachy;
- (void)disableHierachy;
- (void)startRequestWithKey:(NSInteger)key interval:(NSInteger)interval;
- (void)stopRequestWithKey:(NSInteger)key;
- (void)smartTemps;
- (void)startSMARTStatus;
- (void)stopSMARTStatus;
- (void)startSMARTTemps;
- (void)stopSMARTTemps;
- (void)refreshDHCP:(NSString*)interfaceName;
- (void)toggleAirPortPower;
- (void)setNetworkSet:(NSString*)identifier;
- (void)setFanSet:(id)set;
- (void)setT2FanConfig:(id)config reply:(void (^)(NSDictionary*))reply;
- (void)setT2FanSet:(id)set;
- (void)stopT2Fans:(void (^)(NSDictionary*))reply;
- (void)startT2Fans:(void (^)(NSDictionary*))reply;
- (void)finalizeT2Fans:(void (^)(NSDictionary*))reply;
- (void)setT2SafetyTemperature:(NSNumber*)degrees;
- (void)sensors:(NSArray*)configurations reply:(void (^)(NSArray*))reply;
- (void)armSensors:(NSArray*)selection reply:(void (^)(NSArray*))reply;
- (void)supportedSensors:(NSArray*)selection reply:(void (^)(NSDictionary*))reply;
- (void)supportedFans:(NSArray*)selection reply:(void (^)(NSArray*))reply;
@end

@protocol ClientProtocol
- (void)daemonResponse:(NSDictionary*)response;
@end
