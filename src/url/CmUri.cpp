#include "cmutil/url/CmUri.h"

#include <string_view>

#include "url/CmUrlText.h"

struct CCmUri::Impl {
  CCmString input;
  CCmString scheme;
  CCmString username;
  CCmString password;
  CCmString host;
  unsigned short port = 0;
  CCmString path;
  CCmString query;
  CCmString fragment;

  void Clear() {
    input.clear();
    scheme.clear();
    username.clear();
    password.clear();
    host.clear();
    port = 0;
    path.clear();
    query.clear();
    fragment.clear();
  }
};

namespace {

bool IsNumberView(std::string_view s) {
  if (s.empty() || s[0] == '\0') return true;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

// Splits at the last ":" (see CCmUri::ParseHostnamePort); host and port are written
// only on success.
bool ParseHostPort(std::string_view text, CCmString& aHost, unsigned short& aPort) {
  std::string_view host, portText;
  const size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) {
    host = text;
  } else {
    host = text.substr(0, colon);
    portText = text.substr(colon + 1);
  }
  host = cmurl::TrimSpace(host);
  if (!host.empty()) {
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
      host = host.substr(1, host.size() - 2);  // "[v6]:port"
    } else if (host.find(':') != std::string_view::npos) {
      host = text;  // a bare IPv6 address: every ":" belongs to it
      portText = std::string_view();
    }
  }
  host = cmurl::TrimSpace(host);
  portText = cmurl::TrimSpace(portText);
  if (!IsNumberView(portText)) return false;
  aPort = portText.empty() ? 0 : cmurl::DecimalTo16(portText);
  aHost.assign(host.data(), host.size());
  return true;
}

bool IsAuthorityScheme(const CCmString& s) {
  return s == "http" || s == "https" || s == "ws" || s == "wss" || s == "file";
}

}  // namespace

CCmUri::CCmUri() : m_pImpl(new Impl) {}
CCmUri::CCmUri(const CCmUri& aOther) : m_pImpl(new Impl(*aOther.m_pImpl)) {}
CCmUri& CCmUri::operator=(const CCmUri& aOther) {
  if (this != &aOther) *m_pImpl = *aOther.m_pImpl;
  return *this;
}
CCmUri::~CCmUri() = default;

bool CCmUri::Parse(const CCmString& aText) {
  Impl& d = *m_pImpl;
  d.Clear();
  d.input = aText;

  std::string_view rest(aText);
  const size_t colon = rest.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  cmurl::AssignLower(d.scheme, rest.substr(0, colon));
  rest.remove_prefix(colon + 1);

  const size_t hash = rest.find('#');
  if (hash != std::string_view::npos) {
    cmurl::AssignLower(d.fragment, rest.substr(hash + 1));
    rest = rest.substr(0, hash);
  }
  const size_t question = rest.find('?');
  if (question != std::string_view::npos) {
    std::string_view q = rest.substr(question + 1);
    d.query.assign(q.data(), q.size());
    rest = rest.substr(0, question);
  }

  bool ok = true;
  if (d.scheme == "stun" || d.scheme == "news") {
    ok = ParseHostPort(rest, d.host, d.port);
  } else if (IsAuthorityScheme(d.scheme)) {
    if (rest.substr(0, 2) != "//") {
      ok = false;
    } else {
      rest.remove_prefix(2);
      const size_t slash = rest.find('/');
      std::string_view authority = rest;
      if (slash != std::string_view::npos) {
        std::string_view p = rest.substr(slash);
        d.path.assign(p.data(), p.size());
        authority = rest.substr(0, slash);
      }
      const size_t at = authority.find('@');
      if (at != std::string_view::npos) {
        std::string_view userInfo = authority.substr(0, at);
        const size_t uc = userInfo.find(':');
        if (uc == std::string_view::npos) {
          d.username.assign(userInfo.data(), userInfo.size());
        } else {
          d.username.assign(userInfo.data(), uc);
          std::string_view pw = userInfo.substr(uc + 1);
          d.password.assign(pw.data(), pw.size());
        }
        authority.remove_prefix(at + 1);
      }
      ok = ParseHostPort(authority, d.host, d.port) && !d.host.empty();
    }
  } else {
    d.path.assign(rest.data(), rest.size());  // opaque: "sip:[::1]:5060" keeps "[::1]:5060"
    return true;
  }

  if (!ok || d.port == 0) d.port = GetDefaultPort(d.scheme);
  return ok;
}

CCmString CCmUri::GetNameAndPort() const {
  const Impl& d = *m_pImpl;
  if (d.port == GetDefaultPort(d.scheme)) return d.host;
  CCmString out;
  out.reserve(d.host.size() + 6);
  out += d.host;
  out += ':';
  out += std::to_string(d.port);
  return out;
}

bool CCmUri::ParseHostnamePort(const CCmString& aText, CCmString& aHost, unsigned short& aPort) {
  return ParseHostPort(aText, aHost, aPort);
}

bool CCmUri::IsNumber(const CCmString& aText) { return IsNumberView(aText); }

unsigned short CCmUri::GetDefaultPort(const CCmString& aScheme) {
  if (aScheme == "http" || aScheme == "ws") return 80;
  if (aScheme == "https" || aScheme == "wss") return 443;
  if (aScheme == "stun") return 3478;
  return 0;
}

CCmString CCmUri::GetInputUrl() const { return m_pImpl->input; }
CCmString CCmUri::GetScheme() const { return m_pImpl->scheme; }
CCmString CCmUri::GetUsername() const { return m_pImpl->username; }
void CCmUri::SetUsername(const CCmString& aUsername) { m_pImpl->username = aUsername; }
CCmString CCmUri::GetPassword() const { return m_pImpl->password; }
void CCmUri::SetPassword(const CCmString& aPassword) { m_pImpl->password = aPassword; }
CCmString CCmUri::GetHostName() const { return m_pImpl->host; }
const CCmString& CCmUri::GetHostNameRef() const { return m_pImpl->host; }
unsigned short CCmUri::GetPort() const { return m_pImpl->port; }
CCmString CCmUri::GetPath() const { return m_pImpl->path; }
CCmString CCmUri::GetQuery() const { return m_pImpl->query; }
CCmString CCmUri::GetFragment() const { return m_pImpl->fragment; }
