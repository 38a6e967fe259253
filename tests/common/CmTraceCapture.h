#pragma once
// Captures trace lines through the external sink for the lifetime of the object. The
// sink is a plain function, so one capture is active at a time; the previous sink,
// option word and mask come back on destruction. Thread-safe: lines may arrive from any
// thread of the library.

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "cmutil/trace/CmTrace.h"

class CmTraceCapture {
 public:
  struct Line {
    int level;
    std::string text;
  };

  explicit CmTraceCapture(int mask = 4)
      : m_previousSink(g_util_trace_sink.load()),
        m_previousOption(cm_get_trace_option()),
        m_previousMask(g_traceMask.load()) {
    {
      std::lock_guard<std::mutex> lock(globalMutex());
      active() = this;
    }
    set_util_external_trace_sink(&CmTraceCapture::sink);
    cm_set_trace_option(CM_TRACE_ROUTE_SINK);
    set_external_trace_mask(mask);
  }

  ~CmTraceCapture() {
    set_util_external_trace_sink(m_previousSink);
    cm_set_trace_option(m_previousOption);
    set_external_trace_mask(m_previousMask);
    std::lock_guard<std::mutex> lock(globalMutex());
    active() = nullptr;
  }

  CmTraceCapture(const CmTraceCapture&) = delete;
  CmTraceCapture& operator=(const CmTraceCapture&) = delete;

  std::vector<Line> lines() const {
    std::lock_guard<std::mutex> lock(globalMutex());
    return m_lines;
  }

  // Number of captured lines that contain text.
  size_t count(const std::string& text) const {
    std::lock_guard<std::mutex> lock(globalMutex());
    return static_cast<size_t>(std::count_if(m_lines.begin(), m_lines.end(),
                                             [&](const Line& l) { return l.text.find(text) != std::string::npos; }));
  }

  bool contains(const std::string& text) const { return count(text) > 0; }

  // True when a line of this level contains text.
  bool contains(int level, const std::string& text) const {
    std::lock_guard<std::mutex> lock(globalMutex());
    return std::any_of(m_lines.begin(), m_lines.end(),
                       [&](const Line& l) { return l.level == level && l.text.find(text) != std::string::npos; });
  }

  void clear() {
    std::lock_guard<std::mutex> lock(globalMutex());
    m_lines.clear();
  }

  // The sink this capture installs; a test's own sink may pass lines on to it.
  static void sink(int level, const char* text, int len) {
    std::lock_guard<std::mutex> lock(globalMutex());
    if (CmTraceCapture* capture = active())
      capture->m_lines.push_back({level, std::string(text, static_cast<size_t>(len))});
  }

 private:
  static CmTraceCapture*& active() {
    static CmTraceCapture* capture = nullptr;
    return capture;
  }

  static std::mutex& globalMutex() {
    static std::mutex mutex;
    return mutex;
  }

  CmTraceSink m_previousSink;
  int m_previousOption;
  int m_previousMask;
  std::vector<Line> m_lines;
};
