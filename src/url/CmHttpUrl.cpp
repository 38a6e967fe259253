#include "cmutil/url/CmHttpUrl.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "url/CmUrlText.h"

namespace {

const char kSchemeHttp[] = "http";
const char kSchemeHttps[] = "https";
const char kSchemeFile[] = "file";
const char kSchemeWs[] = "ws";
const char kSchemeWss[] = "wss";

struct SchemePrefix {
  std::string_view prefix;  // lower case, with "://"
  const char* scheme;
};

// Tried in this order; the first match wins.
const SchemePrefix kPrefixes[] = {
    {"http://", kSchemeHttp}, {"https://", kSchemeHttps}, {"file://", kSchemeFile},
    {"ws://", kSchemeWs},     {"wss://", kSchemeWss},
};

}  // namespace

struct CCmHttpUrl::Impl {
  CCmString asciiSpec;  // cached canonical text; empty when it must be rebuilt
  CCmString scheme;
  CCmString path;
  CCmString host;
  unsigned short port = 0;
};

CCmHttpUrl::CCmHttpUrl() : m_pImpl(new Impl) {}

CCmHttpUrl::CCmHttpUrl(const CCmHttpUrl& aOther)
    : CCmReferenceControlT<CCmMutexNullSingleThread>(), m_pImpl(new Impl(*aOther.m_pImpl)) {}

CCmHttpUrl& CCmHttpUrl::operator=(const CCmHttpUrl& aOther) {
  if (this != &aOther) *m_pImpl = *aOther.m_pImpl;
  return *this;
}

CCmHttpUrl::~CCmHttpUrl() = default;

const char* CCmHttpUrl::get_pszSchemeHttp() { return kSchemeHttp; }
const char* CCmHttpUrl::get_pszSchemeHttps() { return kSchemeHttps; }
const char* CCmHttpUrl::get_pszSchemeFile() { return kSchemeFile; }

bool CCmHttpUrl::Init(const CCmString& aUrl) {
  std::string_view text(aUrl);
  size_t skip = 0;
  while (skip < text.size() && text[skip] == ' ') ++skip;
  text.remove_prefix(skip);
  if (text.empty()) return false;

  const SchemePrefix* matched = nullptr;
  for (const SchemePrefix& p : kPrefixes) {
    if (cmurl::StartsWithNoCase(text, p.prefix)) {
      matched = &p;
      break;
    }
  }
  if (!matched) {
    CM_ERROR_TRACE_THIS("CCmHttpUrl::Init error format, scheme = " << aUrl.c_str());
    return false;
  }
  m_pImpl->scheme = matched->scheme;
  m_pImpl->asciiSpec.clear();

  std::string_view rest = cmurl::TrimBlanks(text.substr(matched->prefix.size()));
  const size_t slash = rest.find('/');
  std::string_view authority = slash == std::string_view::npos ? rest : rest.substr(0, slash);
  std::string_view path = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);

  if (matched->scheme == kSchemeFile) {
    // A file URL has no authority of its own: the path runs from the first "/", or
    // is the whole rest when there is none. Host and port are left alone.
    std::string_view filePath = slash == std::string_view::npos ? rest : path;
    m_pImpl->path.assign(filePath.data(), filePath.size());
    return true;
  }

  if (!SetNameAndPort(CCmString(authority))) return false;
  SetPath(CCmString(path));
  return true;
}

bool CCmHttpUrl::SetNameAndPort(const CCmString& aNameAndPort) {
  if (aNameAndPort.empty()) return false;
  const size_t colon = aNameAndPort.find(':');
  if (colon == CCmString::npos) {
    m_pImpl->host = aNameAndPort;
    m_pImpl->port = GetDefaultPort();
  } else {
    m_pImpl->host.assign(aNameAndPort, 0, colon);
    SetPort(cmurl::DecimalTo16(std::string_view(aNameAndPort).substr(colon + 1)));
  }
  m_pImpl->asciiSpec.clear();
  return !m_pImpl->host.empty();
}

void CCmHttpUrl::SetPath(const CCmString& aPath) {
  if (aPath.empty())
    m_pImpl->path = "/";
  else
    m_pImpl->path = aPath;
  m_pImpl->asciiSpec.clear();
}

void CCmHttpUrl::SetPort(unsigned short aPort) {
  m_pImpl->port = aPort == 0 ? GetDefaultPort() : aPort;
  m_pImpl->asciiSpec.clear();
}

unsigned short CCmHttpUrl::GetPort() const { return m_pImpl->port; }
const CCmString& CCmHttpUrl::GetHostName() const { return m_pImpl->host; }
const CCmString& CCmHttpUrl::GetPath() const { return m_pImpl->path; }
const CCmString& CCmHttpUrl::GetScheme() const { return m_pImpl->scheme; }

unsigned short CCmHttpUrl::GetDefaultPort() const {
  const CCmString& s = m_pImpl->scheme;
  if (s == kSchemeHttp || s == kSchemeWs) return 80;
  if (s == kSchemeHttps || s == kSchemeWss) return 443;
  return 0;  // "file" and anything else
}

CCmString CCmHttpUrl::GetNameAndPort(bool aIncludePort) const {
  CCmString out = m_pImpl->host;
  if (aIncludePort || m_pImpl->port != GetDefaultPort()) {
    char buf[8];
    int n = std::snprintf(buf, sizeof buf, ":%hu", m_pImpl->port);
    out.append(buf, static_cast<size_t>(n));
  }
  return out;
}

CCmString CCmHttpUrl::GetAsciiSpec() {
  CCmString& asciiSpec = m_pImpl->asciiSpec;
  if (asciiSpec.empty()) {
    asciiSpec.reserve(64);
    asciiSpec += m_pImpl->scheme;
    asciiSpec += "://";
    asciiSpec += GetNameAndPort(false);
    const CCmString& path = m_pImpl->path;
    if (!path.empty()) {
      if (path[0] != '/') asciiSpec += '/';
      asciiSpec += path;
    } else {
      asciiSpec += '/';
    }
  }
  return asciiSpec;
}

char* url_string_encode(char* src, char* dst, int dstSize) {
  if (!dst) return dst;
  dst[0] = '\0';
  if (!src || src[0] == '\0' || dstSize < 1) return dst;

  static const char kHex[] = "0123456789abcdef";
  const long limit = dstSize;
  long out = 0;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(src); *p; ++p) {
    const unsigned char c = *p;
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
      dst[out++] = static_cast<char>(c);
    } else if (c == ' ') {
      dst[out++] = '+';
    } else {
      dst[out++] = '%';
      if (c < 16) {
        // "%x" of such a byte has one digit; its second character is the terminator,
        // which ends the output here.
        dst[out++] = kHex[c];
        break;
      }
      dst[out++] = kHex[c >> 4];
      dst[out++] = kHex[c & 0x0F];
    }
    if (out >= limit) break;
  }
  dst[out] = '\0';
  return dst;
}

void replaceCaseMatch(const char* pScriptString, const CCmString& aFrom, const CCmString& aTo, CCmString& aOut) {
  CM_ASSERTE_RETURN_VOID(pScriptString);
  if (aFrom == aTo) {
    aOut = pScriptString;
    return;
  }
  std::string_view text(pScriptString);
  if (aFrom.empty()) {
    aOut.append(text.data(), text.size());
    return;
  }
  size_t pos = 0;
  for (;;) {
    const size_t hit = text.find(aFrom, pos);
    if (hit == std::string_view::npos) break;
    aOut.append(text.data() + pos, hit - pos);
    aOut += aTo;
    pos = hit + aFrom.size();
  }
  aOut.append(text.data() + pos, text.size() - pos);
}
