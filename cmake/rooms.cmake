# SPDX-License-Identifier: MIT
# The rooms, and which others each may use: link, and include. Nothing else is allowed; a library
# that links more stops the configuration, and scripts/draw-rooms looks at the includes. That script
# also draws this list, as docs/images/rooms.svg: run it after each change.

ra_room(platform)
ra_room(suite USES platform)
ra_room(shared USES platform)
ra_room(capture USES platform suite shared)
ra_room(routing USES platform suite shared)
ra_room(settings USES platform suite shared capture routing)
ra_room(app USES platform suite shared capture routing settings)

ra_room(driver USES platform)
ra_room(hosts/linux USES platform suite driver)
