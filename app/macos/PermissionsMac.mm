#include "app/macos/PermissionsMac.h"

#include "app/PermissionsPlatform.h"

#import <AVFAudio/AVFAudio.h>
#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>

// AVCaptureDevice's class methods for the microphone authorisation, the only way to ask it
// before macOS 14. Declared here because the AVFoundation headers are not needed for anything
// else; the class is looked up at run time from the linked AVFoundation framework.
@protocol SayvoCaptureAuthorization
+ (NSInteger)authorizationStatusForMediaType:(NSString *)mediaType;
+ (void)requestAccessForMediaType:(NSString *)mediaType
                completionHandler:(void (^)(BOOL granted))handler;
@end

namespace sayvo {

namespace {

// AVMediaTypeAudio.
NSString *const kAudioMediaType = @"soun";

Class<SayvoCaptureAuthorization> captureDeviceClass()
{
    return (Class<SayvoCaptureAuthorization>)NSClassFromString(@"AVCaptureDevice");
}

// AVAuthorizationStatus: 0 not determined, 1 restricted, 2 denied, 3 authorized.
Permissions::MicrophoneStatus fromCaptureStatus(NSInteger status)
{
    switch (status) {
    case 1:
        return Permissions::MicrophoneStatus::restricted;
    case 2:
        return Permissions::MicrophoneStatus::denied;
    case 3:
        return Permissions::MicrophoneStatus::authorized;
    default:
        return Permissions::MicrophoneStatus::notDetermined;
    }
}

bool isTrusted(bool prompt)
{
    NSDictionary *options = @{(__bridge NSString *)kAXTrustedCheckOptionPrompt : @(prompt)};
    return AXIsProcessTrustedWithOptions((__bridge CFDictionaryRef)options);
}

} // namespace

std::unique_ptr<Permissions> createPermissions(AudioHardware &, const HotkeyManager &)
{
    return std::make_unique<PermissionsMac>();
}

Permissions::MicrophoneStatus PermissionsMac::microphoneStatus()
{
    if (@available(macOS 14.0, *)) {
        switch ([AVAudioApplication sharedInstance].recordPermission) {
        case AVAudioApplicationRecordPermissionGranted:
            return MicrophoneStatus::authorized;
        case AVAudioApplicationRecordPermissionDenied:
            return MicrophoneStatus::denied;
        case AVAudioApplicationRecordPermissionUndetermined:
            return MicrophoneStatus::notDetermined;
        }
        return MicrophoneStatus::notDetermined;
    }
    return fromCaptureStatus(
        [captureDeviceClass() authorizationStatusForMediaType:kAudioMediaType]);
}

void PermissionsMac::requestMicrophoneAccess()
{
    if (@available(macOS 14.0, *)) {
        [AVAudioApplication requestRecordPermissionWithCompletionHandler:^(BOOL) {}];
        return;
    }
    [captureDeviceClass() requestAccessForMediaType:kAudioMediaType completionHandler:^(BOOL) {}];
}

bool PermissionsMac::isAccessibilityTrusted()
{
    return isTrusted(false);
}

void PermissionsMac::promptAccessibility()
{
    isTrusted(true);
}

bool PermissionsMac::isInputMonitoringGranted()
{
    return CGPreflightListenEventAccess();
}

void PermissionsMac::requestInputMonitoringAccess()
{
    CGRequestListenEventAccess();
}

void PermissionsMac::openSettings(Permission permission)
{
    const char *pane = kMicrophonePane;
    switch (permission) {
    case Permission::microphone:
        pane = kMicrophonePane;
        break;
    case Permission::accessibility:
        pane = kAccessibilityPane;
        break;
    case Permission::inputMonitoring:
        pane = kInputMonitoringPane;
        break;
    }
    [[NSWorkspace sharedWorkspace] openURL:[NSURL URLWithString:@(pane)]];
}

} // namespace sayvo
