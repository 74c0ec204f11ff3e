// SPDX-License-Identifier: MIT
#pragma once

// What the loopback driver and those who use it say to each other, all of it through the PipeWire
// daemon that both are connected to.
//
// The driver announces itself: while it serves, one client carries kLoopbackDriverKey with the
// driver's version as its value. That client is there whether the device is shown or hidden. Any
// client could carry the key; it is the driver's where VouchedProgram says so.
//
// An asker puts kLoopbackRequestKey into its OWN client's properties (pw_client_update_properties
// on its own client object) with one of the two request values. The driver shows the device while
// at least one client asks for it and hides it when the last one has said kLoopbackRequestHide,
// has removed the key or is gone from the daemon for whatever reason. Hiding takes a while; who
// asks meanwhile makes the device stay.
//
// The driver answers in kLoopbackGrantedKey of its own client: the requests for which the device is
// there and stays, as "<client's global id>:<number>" with blanks between, or kLoopbackNoneGranted.
// The number is what the asker put into kLoopbackRequestNumberKey together with its request (and is
// left out, with the colon, where it put none). A device that is in the registry without such an
// answer may be on its way out; an asker waits for the answer to its latest number. A new number
// makes an old request a new one. A driver without this key is older and answers nobody.
//
// The shown device is a node with media.class Audio/Sink whose node.name is kLoopbackDeviceUID and
// whose kLoopbackDeviceManufacturerKey is the driver's version; its monitor ports are the capture
// side. It is in the registry only while it is shown.

namespace loopback {

inline constexpr char kLoopbackDeviceUID[] = "com.vantrel.loopbackdevice";

inline constexpr char kLoopbackDriverKey[] = "com.vantrel.loopback.driver";
inline constexpr char kLoopbackRequestKey[] = "com.vantrel.loopback.request";

// The values of a request: these numbers in decimal.
inline constexpr unsigned kLoopbackRequestShow = 0xFACE;
inline constexpr unsigned kLoopbackRequestHide = 0xB00B;
inline constexpr char kLoopbackRequestShowText[] = "64206";
inline constexpr char kLoopbackRequestHideText[] = "45067";

inline constexpr char kLoopbackRequestNumberKey[] = "com.vantrel.loopback.request.number";
inline constexpr char kLoopbackGrantedKey[] = "com.vantrel.loopback.granted";
inline constexpr char kLoopbackNoneGranted[] = "none";

inline constexpr char kLoopbackDeviceManufacturerKey[] = "device.vendor.name";

// The session manager's choice of default devices: a metadata object of that name, subject 0. The
// effective key is what is used now; the configured key is what the user chose. The values are JSON
// objects {"name": <node.name>}.
inline constexpr char kDefaultMetadataName[] = "default";
inline constexpr char kDefaultSinkKey[] = "default.audio.sink";
inline constexpr char kConfiguredDefaultSinkKey[] = "default.configured.audio.sink";
inline constexpr char kDefaultValueType[] = "Spa:String:JSON";

}  // namespace loopback
