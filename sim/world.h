// A private world for the daemon: its fixed paths and ports, and nothing of the machine's.
//
// The daemon has fixed files, ports and a semaphore key, and runs device programs by their
// path. A world is a set of namespaces of its own (mount, network, IPC, processes; a user
// namespace as well where the caller is not root) in which /etc, /tmp, /var and /usr are
// overlaid, /dev is new, and only loopback exists. What happens in it stays in it: when its
// first process ends, the kernel ends all others and drops every mount.
#pragma once

#include <functional>

namespace sim {

// Directory of the bench's own files within a world.
constexpr char kWorldDirectory[] = "/dev/.world";

// Log of the device programs that were run in the world: one line a run, "UPTIME NAME ARGS".
constexpr char kProgramLog[] = "/dev/.world/programs.log";

// Exit status of RunInWorld where no world can be made.
constexpr int kNoWorldStatus = 3;

// Exit status, plus N, of what signal N ended.
constexpr int kSignalBase = 128;

// Makes a world, runs `body` in it and returns its exit status (kSignalBase + N when signal N
// ended it). The calling process must have one thread and no children, all of which it would
// reap; it sets SIGCHLD to its default action, waits, and passes SIGINT, SIGTERM and SIGHUP that
// another process sent it on to the body. Where a world cannot be made one line on standard error
// says what is missing and how to allow it, and the result is kNoWorldStatus.
int RunInWorld(const std::function<int()>& body);

// Runs `body` in a child process of the present world and returns its exit status as RunInWorld
// does. The same holds for the calling process and its signals.
int RunInChild(const std::function<int()>& body);

}  // namespace sim
