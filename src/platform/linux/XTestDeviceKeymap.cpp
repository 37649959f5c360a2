#include "XTestDeviceKeymap.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XInput2.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace keyferry {

namespace {

// The slave keyboard device XTest events come from, found through the X input extension.
std::optional<int> xtestKeyboard(Display* display) {
    int opcode = 0;
    int eventBase = 0;
    int errorBase = 0;
    int major = 2;
    int minor = 0;
    if (!XQueryExtension(display, "XInputExtension", &opcode, &eventBase, &errorBase) ||
        XIQueryVersion(display, &major, &minor) != Success) {
        return std::nullopt;
    }
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(display, XIAllDevices, &count);
    std::optional<int> found;
    for (int index = 0; index < count && !found; ++index) {
        if (devices[index].use == XISlaveKeyboard && std::strstr(devices[index].name, "XTEST") != nullptr) {
            found = devices[index].deviceid;
        }
    }
    XIFreeDeviceInfo(devices);
    return found;
}

bool sameSymbols(XkbDescPtr left, XkbDescPtr right) {
    if (left->min_key_code != right->min_key_code || left->max_key_code != right->max_key_code) {
        return false;
    }
    for (int keycode = left->min_key_code; keycode <= left->max_key_code; ++keycode) {
        const int count = XkbKeyNumSyms(left, keycode);
        if (count != XkbKeyNumSyms(right, keycode) ||
            XkbKeyGroupsWidth(left, keycode) != XkbKeyGroupsWidth(right, keycode) ||
            !std::equal(XkbKeySymsPtr(left, keycode), XkbKeySymsPtr(left, keycode) + count,
                        XkbKeySymsPtr(right, keycode))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool giveTestDeviceTheCoreKeymap(Display* display) {
    const auto device = xtestKeyboard(display);
    if (!device) {
        return false;
    }
    XkbDescPtr core = XkbGetMap(display, XkbAllMapComponentsMask, XkbUseCoreKbd);
    XkbDescPtr test = XkbGetMap(display, XkbAllMapComponentsMask, static_cast<unsigned>(*device));
    const bool differ = core != nullptr && test != nullptr && !sameSymbols(core, test);
    if (differ) {
        core->device_spec = static_cast<unsigned short>(*device);
        XkbSetMap(display, XkbAllMapComponentsMask, core);
    }
    for (XkbDescPtr desc : {core, test}) {
        if (desc != nullptr) {
            XkbFreeKeyboard(desc, 0, True);
        }
    }
    return differ;
}

} // namespace keyferry
