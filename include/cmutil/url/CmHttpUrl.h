#pragma once
/// HTTP URL: splits a URL of one of five fixed schemes into scheme, host, port and
/// path, fills in the scheme's default port and rebuilds a canonical text on demand.
///
/// | prefix (any case) | scheme  | default port |
/// |-------------------|---------|--------------|
/// | "http://"         | "http"  | 80           |
/// | "https://"        | "https" | 443          |
/// | "file://"         | "file"  | 0            |
/// | "ws://"           | "ws"    | 80           |
/// | "wss://"          | "wss"   | 443          |
///
///   CCmHttpUrl url;
///   if (url.Init("HTTPS://10.0.0.1:8443/a"))
///     url.GetAsciiSpec();   // "https://10.0.0.1:8443/a"
///
/// A CCmHttpUrl is a single-thread object: its reference count takes no lock, and the
/// canonical text is cached inside the object by GetAsciiSpec(), so even the const-
/// looking accessors must not race with each other. Copies are independent objects
/// with a count of their own.
///
/// Also here: url_string_encode (form encoding of a text for use inside a URL) and
/// replaceCaseMatch (a case-sensitive replace-all over texts that carry URLs).

#include <memory>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmReferenceControl.h"
#include "cmutil/base/CmString.h"

class CM_EXPORT CCmHttpUrl : public CCmReferenceControlT<CCmMutexNullSingleThread> {
 public:
  CCmHttpUrl();
  CCmHttpUrl(const CCmHttpUrl& aOther);
  CCmHttpUrl& operator=(const CCmHttpUrl& aOther);
  ~CCmHttpUrl() override;

  /// The stored scheme names "http", "https" and "file".
  static const char* get_pszSchemeHttp();
  static const char* get_pszSchemeHttps();
  static const char* get_pszSchemeFile();

  /// Parses aUrl. Leading blanks are skipped; the prefix is matched without regard to
  /// case. An unknown prefix writes the level-0 trace "CCmHttpUrl::Init error format,
  /// scheme = <text>" and gives false, as does an empty text or an empty host. A file
  /// URL keeps host and port as they were and takes everything from the first "/" as
  /// its path. Other schemes: host and optional ":port" before the first "/", the rest
  /// is the path ("/" when there is none).
  bool Init(const CCmString& aUrl);

  /// "host" or "host:port". Empty text gives false. A missing, zero or non-numeric port
  /// means the scheme's default; the port number is truncated to 16 bits. True when the
  /// host is not empty.
  bool SetNameAndPort(const CCmString& aNameAndPort);
  /// Sets the path; an empty text sets "/".
  void SetPath(const CCmString& aPath);
  /// Sets the port; 0 means the scheme's default port.
  void SetPort(unsigned short aPort);

  unsigned short GetPort() const;
  const CCmString& GetHostName() const;
  const CCmString& GetPath() const;
  const CCmString& GetScheme() const;
  /// The default port of the stored scheme (exact comparison), 0 for any other.
  unsigned short GetDefaultPort() const;
  /// The host, then ":" and the port when aIncludePort is true or the port is not the
  /// scheme's default.
  CCmString GetNameAndPort(bool aIncludePort) const;
  /// The canonical text: scheme "://" host[:port] and the path (a "/" put in front of a
  /// path that lacks it; "/" alone for an empty path). Built once and cached until a
  /// setter changes a field.
  CCmString GetAsciiSpec();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_pImpl;
};

/// Form-encodes src into dst for use inside a URL and returns dst. ASCII letters and
/// digits are copied, a blank becomes "+", every other byte becomes "%" and the first
/// two characters of its lower-case hexadecimal form. A byte below 16 has a one-digit
/// form, so its second character is the terminator: the output ends right after "%x"
/// for that byte (so "a\nb" gives "a%a"). This cut is the defined behaviour.
///
/// Output stops after the last input byte or once it holds dstSize characters or more;
/// the test runs after each byte, so up to three characters and the terminator may be
/// written past dstSize: callers size dst with dstSize + 4 bytes at least. dst is
/// always cleared first (dst[0] is written even when dstSize is below 1); an empty or
/// null src, or a dstSize below 1, leaves it empty. A null dst does nothing.
CM_EXPORT char* url_string_encode(char* src, char* dst, int dstSize);

/// Case-sensitive replace-all: scans pScriptString from the left, replaces every
/// occurrence of aFrom by aTo and resumes after the occurrence (no overlap, no rescan of
/// inserted text). The pieces are APPENDED to aOut, which is not cleared; pass an empty
/// string. aFrom equal to aTo sets aOut to the text. A null pScriptString is an
/// assertion ("pScriptString") and leaves aOut unchanged. An empty aFrom matches
/// nowhere: the text is appended unchanged.
CM_EXPORT void replaceCaseMatch(const char* pScriptString, const CCmString& aFrom, const CCmString& aTo,
                                CCmString& aOut);
