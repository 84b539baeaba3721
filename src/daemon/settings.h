// First half of start-up: the settings that are needed before anything is opened.
#pragma once

#include "context/rs232_context.h"

// File and key of the daemon's own UDP port.
constexpr char UDP_PORT_TABLE_PATH[] = "/etc/udp_port_table.conf";
constexpr char UDP_PORT_KEY[] = "RS232_DAEMON_PORT";

// Fills `settings` from the port table and the parameter block, which is copied under its locks and
// then closed. Blocks while another process holds a lock. Returns 0, or -1 if the block cannot be
// opened or read (after printing why) or describes fewer than two serial ports.
int ReadSettings(Rs232Settings* settings);
