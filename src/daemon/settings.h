// First half of start-up: what the daemon has to know before it opens anything.
#pragma once

#include "context/rs232_context.h"

// Where the daemon's own UDP port stands.
constexpr char UDP_PORT_TABLE_PATH[] = "/etc/udp_port_table.conf";
constexpr char UDP_PORT_KEY[] = "RS232_DAEMON_PORT";

// Fills `settings` from the port table and the parameter block, which is copied under its lock
// and closed again. Blocks while another process holds that lock. Returns 0, or -1 when the
// block cannot be opened (it prints why) or describes fewer than two serial ports.
int ReadSettings(Rs232Settings* settings);
