// The SDK's VR focus manager (module "libplatkit.halden.so", interface version 5): which
// applications are in the foreground of the headset, and a listener for top-activity changes.
//
// The virtual tables below are the SDK's binary interface: code compiled against other builds
// of the SDK relies on every slot position, so never reorder, insert or remove an operation.
// Objects are created and destroyed by the module's exported functions (declared at the end),
// never with new/delete outside the module; createVrFocusManagerPtr() wraps both.
#pragma once

#include <cstdint>
#include <memory>

#include "platkit/Types.h"

namespace Platkit {
namespace Focus {

// An application that renders an immersive (full-field) scene.
struct ImmersiveApp {
    String packageName;
    int32_t pid = 0;
    int32_t displayId = 0;
};

namespace v5 {

// Receives top-activity changes on a thread of the SDK's, for as long as it is registered.
// Slot 0: onTopActivityChanged; slots 1-2: the destructor pair.
class ITopActivityListener {
public:
    // `activity`: the new top activity ("package/.Activity"); `app`: engaged when that activity
    // belongs to an immersive application. Must not block for long: the SDK's thread waits.
    virtual void onTopActivityChanged(String activity, Optional<ImmersiveApp> app) = 0;
    virtual ~ITopActivityListener() = default;
};

class IVrFocusManager {
public:
    virtual ~IVrFocusManager() = default;  // slots 0-1

    virtual int64_t getInterfaceVersion() const = 0;              // slot 2
    virtual bool isHeadsetFocused() = 0;                          // slot 3
    virtual Optional<ImmersiveApp> getFocusedImmersiveApp() = 0;  // slot 4
    virtual bool requestFocus(const String& packageName) = 0;     // slot 5
    virtual bool abandonFocus(const String& packageName) = 0;     // slot 6
    // Registers `listener` (not owned; it must outlive its registration). True on success.
    virtual bool registerTopActivityListener(ITopActivityListener* listener) = 0;  // slot 7
    // Removes `listener`; once this returns true no call to it is in progress or will follow.
    virtual bool unregisterTopActivityListener(ITopActivityListener* listener) = 0;  // slot 8
    virtual String getTopActivity() = 0;                                             // slot 9
    virtual bool isImmersive(const String& packageName) = 0;                         // slot 10
    // The foreground applications, in the manager's order (top first). The array and its
    // strings are the module's; release the array through its own release function.
    virtual Array<String> getForegroundApps() = 0;  // slot 11
};

// A new manager, or an empty handle when the module or its create function is missing or
// creation fails. The last release of the handle calls destroyVrFocusManager(5, object).
std::shared_ptr<IVrFocusManager> createVrFocusManagerPtr();

}  // namespace v5
}  // namespace Focus
}  // namespace Platkit

// Entry points the module exports with C linkage.
extern "C" {
Platkit::Focus::v5::IVrFocusManager* createVrFocusManager(int64_t version);
void destroyVrFocusManager(int64_t version, Platkit::Focus::v5::IVrFocusManager* manager) noexcept;
}
