#include "ReopenEvents.h"

#import <AppKit/AppKit.h>

#include <utility>

namespace {

std::function<void()>& reopenHandler() {
    static std::function<void()> handler;
    return handler;
}

} // namespace

// The Objective-C target NSAppleEventManager calls; forwards to the installed C++ handler.
@interface KeyferryReopenEventTarget : NSObject
- (void)handleReopenEvent:(NSAppleEventDescriptor*)event withReplyEvent:(NSAppleEventDescriptor*)reply;
@end

@implementation KeyferryReopenEventTarget
- (void)handleReopenEvent:(NSAppleEventDescriptor*)event withReplyEvent:(NSAppleEventDescriptor*)reply {
    static_cast<void>(event);
    static_cast<void>(reply);
    if (reopenHandler()) {
        reopenHandler()();
    }
}
@end

namespace {

KeyferryReopenEventTarget* installedTarget = nil;

} // namespace

namespace keyferry {

void ReopenEvents::install(std::function<void()> handler) {
    reopenHandler() = std::move(handler);
    if (installedTarget != nil) {
        return;
    }
    installedTarget = [[KeyferryReopenEventTarget alloc] init];
    [[NSAppleEventManager sharedAppleEventManager] setEventHandler:installedTarget
                                                       andSelector:@selector(handleReopenEvent:withReplyEvent:)
                                                     forEventClass:kCoreEventClass
                                                        andEventID:kAEReopenApplication];
}

void ReopenEvents::uninstall() {
    if (installedTarget != nil) {
        [[NSAppleEventManager sharedAppleEventManager] removeEventHandlerForEventClass:kCoreEventClass
                                                                            andEventID:kAEReopenApplication];
        installedTarget = nil;
    }
    reopenHandler() = nullptr;
}

} // namespace keyferry
