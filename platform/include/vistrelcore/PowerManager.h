// Host stand-in for the host library's power manager. A default instance has no data of its own;
// on the host it answers what hostplatform::setInteractiveSource() installed (the simulated
// headset's scripted state), or true when nothing is installed.
#pragma once

namespace Vistrel {

class PowerManager {
public:
    PowerManager() = default;
    // Slot 0: whether the device is interactive (worn and in use).
    virtual bool getIsInteractive();
    virtual ~PowerManager();
};

}  // namespace Vistrel
