// Netlink request and dump loop.

#include <errno.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <ctime>

#include "platform/CmFsRoot.h"
#include "platform/CmNetlinkPlatform.h"

namespace {

std::atomic<uint32_t> g_sequence{static_cast<uint32_t>(time(nullptr))};

class Socket {
 public:
  explicit Socket(int protocol) : m_fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol)) {}
  ~Socket() {
    if (m_fd >= 0) close(m_fd);
  }
  int fd() const { return m_fd; }

 private:
  int m_fd;
};

}  // namespace

bool cm_netlink_request(int protocol, std::vector<uint8_t>& request, uint32_t& seq,
                        const std::function<bool(const uint8_t*, size_t)>& onBuffer, int& error) {
  error = 0;
  if (cm_fs_root_is_set()) {
    error = EPERM;
    return false;
  }
  if (request.size() < sizeof(nlmsghdr)) {
    error = EINVAL;
    return false;
  }
  Socket sock(protocol);
  if (sock.fd() < 0) {
    error = errno;
    return false;
  }
  timeval timeout = {1, 0};
  setsockopt(sock.fd(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  seq = ++g_sequence;
  std::memcpy(request.data() + offsetof(nlmsghdr, nlmsg_seq), &seq, sizeof seq);
  sockaddr_nl kernel = {};
  kernel.nl_family = AF_NETLINK;
  if (sendto(sock.fd(), request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0) {
    error = errno;
    return false;
  }
  std::vector<uint8_t> buffer(32768);
  for (;;) {
    // Peek at the size first: scan dumps can exceed the buffer.
    ssize_t size = recv(sock.fd(), buffer.data(), buffer.size(), MSG_PEEK | MSG_TRUNC);
    if (size > static_cast<ssize_t>(buffer.size())) buffer.resize(static_cast<size_t>(size));
    size = recv(sock.fd(), buffer.data(), buffer.size(), 0);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) {
      error = size < 0 ? errno : ENODATA;
      return false;
    }
    if (!onBuffer(buffer.data(), static_cast<size_t>(size))) return true;
  }
}

unsigned cm_net_if_index(const char* name) { return if_nametoindex(name); }

std::string cm_net_if_name(unsigned index) {
  char name[IF_NAMESIZE] = {};
  return if_indextoname(index, name) ? name : "";
}
