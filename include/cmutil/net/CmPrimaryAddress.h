#pragma once
/// Primary address: the local IPv4 address the system would use to reach the outside
/// world, found without sending anything (a datagram socket is connected to a detection
/// endpoint, which only fixes the route), and the interface that carries it.
///
/// The detection endpoint is a setting: the default media server (the default) or a
/// public DNS resolver. The settings are plain globals read without a lock; a change
/// takes effect at each thread's next call. Every call opens and closes its own socket,
/// so the functions may be called from any thread.
///
///   std::string ip;
///   if (getPrimaryIp(nullptr, ip) == 0) use(ip, getIFNameForPrimaryIP());

#include <sys/socket.h>

#include <string>

#include "cmutil/base/CmExport.h"

/// true: detect through the default media server; false: through the public DNS resolver.
CM_EXPORT extern bool g_bUseDefaultServer4PrimaryIp;
/// Dotted IPv4 text of the default media server; replaceable by the host.
CM_EXPORT extern const char* g_defaultServerAddr;
/// Port of the default media server (5004).
CM_EXPORT extern unsigned int g_defaultServerPort;
/// Dotted IPv4 text of the public DNS resolver.
CM_EXPORT extern const char* g_kDnsServerAddr;
/// Port of the public DNS resolver (53).
CM_EXPORT extern unsigned short g_kDnsPort;

/// Chooses the detection endpoint (traced at level 2).
CM_EXPORT void EnableDefaultServer4PrimaryIp(bool value);

/// The detection endpoint the setting selects, without checks.
CM_EXPORT void getDefaultServerIpPort(const char*& ip, unsigned short& port);

/// 0 with ip set to the primary address (and addr, when not null, to its socket address,
/// 16 bytes); -1 on any failure, each traced. A self-assigned 169.254.x.x address is a
/// failure too, though ip then holds it.
extern "C" CM_EXPORT int getPrimaryIp(struct sockaddr* addr, std::string& ip);

/// Name of the up interface whose address text equals the primary address, or "".
CM_EXPORT std::string getIFNameForPrimaryIP();
