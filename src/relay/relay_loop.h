// The relay mode: serial line, PTZ clients and local processes joined, camera control turned
// into Pelco-D.
#pragma once

// Runs the relay on the daemon's context until the stop flag is set. Returns 0. The frames of a
// camera-control command are sent, waits included, before anything else is served.
int RelayLoop();
