// Pruning of the local address list, its release, and the bounded copy it uses.

#include <arpa/inet.h>
#include <errno.h>

#include <cstring>
#include <ctime>

#include "cmutil/net/CmLocalAddress.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

// A prefix and its mask, as address bytes.
struct Prefix {
  int family;
  const char* prefix;
  const char* mask;
  unsigned char prefixBytes[16];
  unsigned char maskBytes[16];
};

Prefix g_prefixes[] = {
    {AF_INET6, "2001:DB8::", "FFFF:FFFF:0000:0000:0000:0000:0000:0000", {}, {}},
    {AF_INET6, "3FFF::", "FFFF:F000:0000:0000:0000:0000:0000:0000", {}, {}},
    {AF_INET6, "2000::", "E000:0000:0000:0000:0000:0000:0000:0000", {}, {}},
    {AF_INET6, "FC00::", "FE00:0000:0000:0000:0000:0000:0000:0000", {}, {}},
    {AF_INET6, "FE80::", "FFC0:0000:0000:0000:0000:0000:0000:0000", {}, {}},
    {AF_INET, "192.0.0.0", "255.255.255.248", {}, {}},
    {AF_INET, "127.0.0.0", "255.0.0.0", {}, {}},
};
enum { kDocumentation, kDocumentation3fff, kGlobal, kUniqueLocal, kLinkLocal, kXlat464, kLoopback };

const Prefix& prefix(int which) {
  static const bool parsed = [] {
    for (Prefix& p : g_prefixes) {
      inet_pton(p.family, p.prefix, p.prefixBytes);
      inet_pton(p.family, p.mask, p.maskBytes);
    }
    return true;
  }();
  (void)parsed;
  return g_prefixes[which];
}

bool in_prefix(const unsigned char* address, int which) {
  const Prefix& p = prefix(which);
  const size_t size = p.family == AF_INET6 ? 16 : 4;
  for (size_t i = 0; i < size; ++i)
    if ((address[i] ^ p.prefixBytes[i]) & p.maskBytes[i]) return false;
  return true;
}

const unsigned char* bytes_of(const local_addr_t* node) {
  return node->addr.sin6_family == AF_INET6
             ? node->addr.sin6_addr.s6_addr
             : reinterpret_cast<const unsigned char*>(&reinterpret_cast<const sockaddr_in*>(&node->addr)->sin_addr);
}

// A singly linked group with a tail, in list order.
struct Group {
  local_addr_t* head = nullptr;
  local_addr_t** tail = &head;
  void append(local_addr_t* node) {
    node->next = nullptr;
    *tail = node;
    tail = &node->next;
  }
};

void delete_node(local_addr_t* node, const char* text) {
  CM_INFO_TRACE("prune_local_addr, IP Address= " << text << ", flag=" << node->flag);
  delete node;
}

// Compares a candidate with the kept IPv6 addresses of its interface. Returns the node
// that loses (deleted by the caller), or null when nothing decides (the candidate is
// kept). A temporary address replaces an autoconfigured one in place.
local_addr_t* settle_against_kept(Group& kept, local_addr_t* candidate) {
  for (local_addr_t** link = &kept.head; *link; link = &(*link)->next) {
    local_addr_t* old = *link;
    if (old->addr.sin6_family != AF_INET6 || std::strcmp(old->ifname, candidate->ifname) != 0) continue;
    if (candidate->flag == kLocalAddrTemporary && old->flag == kLocalAddrAutoconf) {
      candidate->next = old->next;
      *link = candidate;
      if (kept.tail == &old->next) kept.tail = &candidate->next;
      return old;
    }
    if (candidate->flag == old->flag) {
      if (old->expire <= candidate->expire) return candidate;
      candidate->next = old->next;
      *link = candidate;
      if (kept.tail == &old->next) kept.tail = &candidate->next;
      return old;
    }
    if (candidate->flag == kLocalAddrAutoconf && old->flag == kLocalAddrTemporary) return candidate;
  }
  kept.append(candidate);
  return nullptr;
}

}  // namespace

void prune_local_addr(local_addr_t** list, const prune_local_addr_options* options, bool* xlat_removed) {
  if (!list) return;
  const prune_local_addr_options all = {true, true, true};
  const prune_local_addr_options& opt = options ? *options : all;
  const uint64_t now = static_cast<uint64_t>(time(nullptr));
  Group kept, xlat;
  bool keptV6 = false;
  local_addr_t* node = *list;
  while (node) {
    local_addr_t* next = node->next;
    char text[INET6_ADDRSTRLEN] = {};
    const unsigned char* bytes = bytes_of(node);
    if (node->addr.sin6_family != AF_INET6) {
      if (!inet_ntop(AF_INET, bytes, text, sizeof text)) {
        CM_ERROR_TRACE("prune_local_addr, inet_ntop failed, error=" << errno);
        delete_node(node, text);
      } else if (in_prefix(bytes, kXlat464)) {
        CM_DETAIL_TRACE("prune_local_addr, keep XLAT464 Reserved IPv4 Address= " << text);
        xlat.append(node);
      } else if (in_prefix(bytes, kLoopback)) {
        CM_DETAIL_TRACE("prune_local_addr, delete loopback IPv4 Address= " << text);
        delete_node(node, text);
      } else {
        kept.append(node);
      }
      node = next;
      continue;
    }
    if (!inet_ntop(AF_INET6, bytes, text, sizeof text)) {
      CM_ERROR_TRACE("prune_local_addr, inet_ntop failed, errno=" << errno);
      delete_node(node, text);
      node = next;
      continue;
    }
    bool candidate = false;
    if (node->flag == kLocalAddrOther) {
      candidate = false;
    } else if (node->flag == kLocalAddrManual && node->expire != 0 && now >= node->expire) {
      candidate = false;
    } else {
      if (node->flag == kLocalAddrManual && node->expire == 0)
        CM_INFO_TRACE("prune_local_addr, statically configured IPv6 address [" << text << "] is permanent, not expire");
      const char* kind = nullptr;
      if (in_prefix(bytes, kGlobal) && !in_prefix(bytes, kDocumentation) && !in_prefix(bytes, kDocumentation3fff))
        kind = "prune_local_addr, keep global unicast IPv6 Address= ";
      else if (opt.keep_link_local && in_prefix(bytes, kLinkLocal))
        kind = "prune_local_addr, keep link local IPv6 Address= ";
      else if (opt.keep_unique_local && in_prefix(bytes, kUniqueLocal))
        kind = "prune_local_addr, keep unique local IPv6 Address= ";
      if (kind) {
        CM_DETAIL_TRACE(kind << text << ", expire=" << node->expire << ", flag=" << node->flag);
        candidate = true;
      }
    }
    if (!candidate) {
      delete_node(node, text);
    } else if (local_addr_t* loser = settle_against_kept(kept, node)) {
      char loserText[INET6_ADDRSTRLEN] = {};
      inet_ntop(AF_INET6, loser->addr.sin6_addr.s6_addr, loserText, sizeof loserText);
      delete_node(loser, loserText);
      keptV6 = true;
    } else {
      keptV6 = true;
    }
    node = next;
  }
  if (xlat_removed) *xlat_removed = false;
  if (keptV6 && !opt.keep_xlat464) {
    for (local_addr_t* x = xlat.head; x;) {
      local_addr_t* next = x->next;
      char text[INET6_ADDRSTRLEN] = {};
      inet_ntop(AF_INET, bytes_of(x), text, sizeof text);
      delete_node(x, text);
      x = next;
    }
    if (xlat_removed) *xlat_removed = true;
  } else if (xlat.head) {
    *kept.tail = xlat.head;
  }
  *list = kept.head;
}

void free_local_addr(local_addr_t* list) {
  while (list) {
    local_addr_t* next = list->next;
    delete list;
    list = next;
  }
}

int strcpy_forsafe(char* dst, const char* src, size_t count, size_t dst_size) {
  if (!dst || !src || count == 0 || dst_size == 0) return -1;
  const size_t n = count < dst_size ? count : dst_size - 1;
  std::memcpy(dst, src, n);
  dst[n] = '\0';
  return 0;
}
