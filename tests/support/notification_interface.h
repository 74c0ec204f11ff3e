// SPDX-License-Identifier: MIT
#pragma once

namespace test_support {

// The desktop's notification service, for tests that play it. Signals need no description.
inline constexpr const char* kNotificationsName = "org.freedesktop.Notifications";
inline constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";
inline constexpr const char* kNotificationsXml =
    R"(<node><interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="GetServerInformation"><arg type="s" direction="out"/><arg type="s" direction="out"/>
    <arg type="s" direction="out"/><arg type="s" direction="out"/></method>
  <method name="Notify"><arg type="s" direction="in"/><arg type="u" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="as" direction="in"/><arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/></method>
  <method name="CloseNotification"><arg type="u" direction="in"/></method>
</interface></node>)";

}  // namespace test_support
