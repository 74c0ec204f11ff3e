-- SPDX-License-Identifier: MIT
-- No hardware, so that nothing of the machine's comes into a private session. WirePlumber 0.4 reads
-- this; what 0.5 reads stands in wireplumber.conf.d and says the same.
alsa_monitor.enabled = false
v4l2_monitor.enabled = false
libcamera_monitor.enabled = false
