-- SPDX-License-Identifier: MIT
-- Without Bluetooth the session manager also does without a login manager, which a container has not.
bluez_monitor.enabled = false
