// Names that tie a VirtualBox machine to Korvex: extra-data keys written when
// the device image is installed, the guest property and the factory snapshot.
#pragma once

namespace VBoxKeys {

// Only machines carrying this key are Korvex devices.
constexpr char VmVersion[] = "korvex/vm-version";
constexpr char AndroidVersion[] = "korvex/android-version";
constexpr char Platform[] = "korvex/platform";
constexpr char IpProperty[] = "/VirtualBox/GuestInfo/Net/0/V4/IP";
constexpr char DeviceIdProperty[] = "korvex_device_id";
constexpr char FactorySnapshot[] = "factory";

} // namespace VBoxKeys
