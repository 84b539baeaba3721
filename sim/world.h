// A private world for the daemon, isolated from the files and ports of the machine.
//
// The daemon uses fixed files, ports and a semaphore key, and runs device programs by path. A world
// is a set of new namespaces (mount, network, IPC, PID; a user namespace as well unless the caller
// is root) with overlays on /etc, /tmp, /var and /usr, a new /dev, and only the loopback interface.
// When its first process exits, the kernel kills all others and drops every mount.
#pragma once

#include <csignal>
#include <functional>

namespace sim {

// Directory of the bench's own files in a world.
constexpr char kWorldDirectory[] = "/dev/.world";

// Log of the device programs run in the world, one line each: "UPTIME NAME ARGS".
constexpr char kProgramLog[] = "/dev/.world/programs.log";

// Exit status of RunInWorld if no world can be made.
constexpr int kNoWorldStatus = 3;

// Added to the number of the fatal signal to form an exit status.
constexpr int kSignalBase = 128;

// The signals that worlds and sessions handle: SIGCHLD, SIGINT, SIGTERM and SIGHUP.
sigset_t HandledSignals();

// Makes a world, runs `body` in it and returns its exit status (kSignalBase + N if signal N killed
// it). The calling process must have one thread and no children, because this function reaps every
// child. It sets SIGCHLD to its default action and forwards SIGINT, SIGTERM and SIGHUP from other
// processes to the body. On failure, one line on standard error names the missing permission and
// how to grant it; the result is kNoWorldStatus.
int RunInWorld(const std::function<int()>& body);

// Runs `body` in a child process in the current world. Exit status, conditions and signals are as
// for RunInWorld.
int RunInChild(const std::function<int()>& body);

}  // namespace sim
