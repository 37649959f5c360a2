#include "LocalizedHostName.h"

#import <Foundation/Foundation.h>

namespace keyferry {

std::string LocalizedHostName::current() {
    @autoreleasepool {
        NSString* name = [[NSHost currentHost] localizedName];
        const char* utf8 = name == nil ? nullptr : [name UTF8String];
        return utf8 == nullptr ? std::string() : std::string(utf8);
    }
}

} // namespace keyferry
