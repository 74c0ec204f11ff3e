// SPDX-License-Identifier: MIT
#pragma once

// The protocol between the loopback driver and its clients. Everything goes through the PipeWire
// daemon to which both are connected.
//
// The driver announces itself: while it serves, one client carries kLoopbackDriverKey with the
// driver's version as its value. That client is there whether the device is shown or hidden. Any
// client could carry the key; it counts only if VouchedProgram confirms that the client is the
// driver.
//
// A program that wants the device puts kLoopbackRequestKey into its OWN client's properties
// (pw_client_update_properties on its own client object) with one of the two request values. The
// driver shows the device while at least one client asks for it. It hides the device when the last
// of them has set kLoopbackRequestHide, has removed the key or is gone from the daemon for any
// reason. Hiding takes a while; a request in the meantime makes the device stay.
//
// The driver answers in kLoopbackGrantedKey of its own client. The value lists the requests for
// which the device is there and stays, as "<client's global id>:<number>" separated by spaces, or
// is kLoopbackNoneGranted. The number is what the client put into kLoopbackRequestNumberKey
// together with its request; without one, it is left out together with the colon. A device that is
// in the registry without such an answer may be about to go, so a client waits for the answer to
// its latest number. A new number makes an old request a new one. A driver without this key is
// older and sends no answers.
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

// The session manager's choice of default devices: a metadata object with this name, subject 0. The
// effective key is the device in use; the configured key is the user's choice. The values are JSON
// objects {"name": <node.name>}.
inline constexpr char kDefaultMetadataName[] = "default";
inline constexpr char kDefaultSinkKey[] = "default.audio.sink";
inline constexpr char kConfiguredDefaultSinkKey[] = "default.configured.audio.sink";
inline constexpr char kDefaultValueType[] = "Spa:String:JSON";

}  // namespace loopback
