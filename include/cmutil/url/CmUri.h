#pragma once
/// URI: splits any URI text into scheme, user name, password, host, port, path, query
/// and fragment. Knows the default ports of the media engine's schemes (http and ws 80,
/// https and wss 443, stun 3478), accepts bracketed ("[::1]:5060") and bare ("::1")
/// IPv6 hosts, and keeps the input text.
///
///   CCmUri uri;
///   if (uri.Parse("HTTP://user:pw@10.0.0.1:8080/a?X=1#Top")) {
///     uri.GetScheme();    // "http"
///     uri.GetPort();      // 8080
///     uri.GetQuery();     // "X=1" (kept as it stands)
///     uri.GetFragment();  // "top" (lower-cased)
///   }
///
/// Forms: "stun:" and "news:" take the host directly ("stun:10.0.0.1"); "http",
/// "https", "ws", "wss" and "file" need "//" and a non-empty host; any other scheme is
/// opaque and keeps everything after ":" (less query and fragment) as its path.
///
/// A CCmUri is a plain value object: not shared, no locking; copies are independent.

#include <memory>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmString.h"

class CM_EXPORT CCmUri {
 public:
  struct Impl;

  CCmUri();
  CCmUri(const CCmUri& aOther);
  CCmUri& operator=(const CCmUri& aOther);
  virtual ~CCmUri();

  /// Parses aText, replacing every field. False when there is no scheme (no ":" or a
  /// ":" first), when an authority scheme lacks "//" or a host, or when the port is not
  /// a number. A port left 0 (or unparsable) becomes the scheme's default.
  bool Parse(const CCmString& aText);

  /// The host alone when the port equals the scheme's default, else "host:port".
  CCmString GetNameAndPort() const;

  /// Splits "host", "host:port", "[v6]:port" or a bare IPv6 address at the last ":".
  /// On success writes aHost and aPort (0 for no port) and returns true; a port text
  /// that is not a number gives false and writes nothing.
  static bool ParseHostnamePort(const CCmString& aText, CCmString& aHost, unsigned short& aPort);
  /// True for the empty text, a text whose first character is NUL, and ASCII digits.
  static bool IsNumber(const CCmString& aText);
  /// Default port of a lower-case scheme: http/ws 80, https/wss 443, stun 3478, else 0.
  static unsigned short GetDefaultPort(const CCmString& aScheme);

  CCmString GetInputUrl() const;
  CCmString GetScheme() const;
  CCmString GetUsername() const;
  void SetUsername(const CCmString& aUsername);
  CCmString GetPassword() const;
  void SetPassword(const CCmString& aPassword);
  CCmString GetHostName() const;
  /// The host without a copy; valid until the object changes or dies.
  const CCmString& GetHostNameRef() const;
  unsigned short GetPort() const;
  CCmString GetPath() const;
  CCmString GetQuery() const;
  CCmString GetFragment() const;

 private:
  std::unique_ptr<Impl> m_pImpl;
};
