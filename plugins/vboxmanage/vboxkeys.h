// Names that tie a VirtualBox machine to Korvex: extra-data keys written when
// the device image is installed, the guest properties and the factory snapshot.
#pragma once

namespace VBoxKeys {

// Extra-data keys of Korvex start so; only machines carrying VmVersion are devices.
constexpr char Prefix[] = "korvex/";
constexpr char VmVersion[] = "korvex/vm-version";
constexpr char AndroidVersion[] = "korvex/android-version";
constexpr char Platform[] = "korvex/platform";
// The guest's interfaces: addresses, MACs and count.
constexpr char GuestNetPattern[] = "/VirtualBox/GuestInfo/Net/*";
constexpr char DeviceIdProperty[] = "korvex_device_id";
constexpr char FactorySnapshot[] = "factory";

} // namespace VBoxKeys
