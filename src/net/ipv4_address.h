// IPv4 socket addresses.
#pragma once

#include <netinet/in.h>

#include <cstdint>

// Returns the address of `host` (host order, e.g. INADDR_LOOPBACK) and the low 16 bits of `port`.
inline sockaddr_in ZSK_Ipv4Address(in_addr_t host, int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(host);
  return address;
}

// Casts an address to the type that the system calls accept.
inline const sockaddr* ZSK_Generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}
