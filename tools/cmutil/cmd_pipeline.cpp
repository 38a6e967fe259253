// URL and image commands, and the three-stage pipeline demo.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>
#include <vector>

#include "CmCommand.h"
#include "cmutil/pipeline/CmProcessModule.h"
#include "cmutil/pipeline/CmProcessUnit.h"
#include "cmutil/system/CmImageSize.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/url/CmHttpUrl.h"
#include "cmutil/url/CmUri.h"

namespace {

const char kUrlUsage[] = "url <text>\n  writes the fields as each of the two URL parsers reads them";
const char kImageUsage[] = "image <file>...\n  writes each image's format and pixel size (GIF, PNG, baseline JPEG)";

int url_command(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: cmutil %s\n", kUrlUsage);
    return 2;
  }
  const CCmString text = argv[1];
  int failures = 0;

  CCmHttpUrl url;
  if (url.Init(text)) {
    std::printf("CCmHttpUrl: ok\n");
    std::printf("  scheme    %s\n", url.GetScheme().c_str());
    std::printf("  host      %s\n", url.GetHostName().c_str());
    std::printf("  port      %u (default %u)\n", url.GetPort(), url.GetDefaultPort());
    std::printf("  path      %s\n", url.GetPath().c_str());
    std::printf("  spec      %s\n", url.GetAsciiSpec().c_str());
  } else {
    std::printf("CCmHttpUrl: not parsed\n");
    ++failures;
  }

  CCmUri uri;
  if (uri.Parse(text)) {
    std::printf("CCmUri: ok\n");
  } else {
    std::printf("CCmUri: not parsed (fields as far as they were read)\n");
    ++failures;
  }
  std::printf("  scheme    %s\n", uri.GetScheme().c_str());
  std::printf("  username  %s\n", uri.GetUsername().c_str());
  std::printf("  password  %s\n", uri.GetPassword().c_str());
  std::printf("  host      %s\n", uri.GetHostName().c_str());
  std::printf("  port      %u (default %u)\n", uri.GetPort(), CCmUri::GetDefaultPort(uri.GetScheme()));
  std::printf("  path      %s\n", uri.GetPath().c_str());
  std::printf("  query     %s\n", uri.GetQuery().c_str());
  std::printf("  fragment  %s\n", uri.GetFragment().c_str());
  std::printf("  name:port %s\n", uri.GetNameAndPort().c_str());
  return failures == 2 ? 1 : 0;
}

/// The reason an image's size was not read, for the one message on stderr.
const char* WhyNotRecognised(const std::vector<unsigned char>& bytes) {
  if (bytes.size() < 2 || bytes[0] != 0xFF || bytes[1] != 0xD8) return "not a GIF, PNG or JPEG file";
  // Walk the marker segments up to the first frame header.
  size_t i = 2;
  while (i + 3 < bytes.size() && bytes[i] == 0xFF) {
    const unsigned char marker = bytes[i + 1];
    const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame && marker != 0xC0)
      return "a JPEG whose frame is not baseline (progressive or extended); only baseline JPEG sizes are read";
    if (frame || marker == 0xDA) break;
    i += 2 + ((static_cast<size_t>(bytes[i + 2]) << 8) | bytes[i + 3]);
  }
  return "a JPEG without a readable baseline frame header";
}

int image_command(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: cmutil %s\n", kImageUsage);
    return 2;
  }
  int failures = 0;
  for (int i = 1; i < argc; ++i) {
    std::ifstream in(argv[i], std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cmutil: cannot read %s: %s\n", argv[i], std::strerror(errno));
      ++failures;
      continue;
    }
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const unsigned char* data = bytes.empty() ? nullptr : bytes.data();
    const uint32_t len = static_cast<uint32_t>(std::min<size_t>(bytes.size(), UINT32_MAX));
    uint32_t w = 0, h = 0;
    const char* format = nullptr;
    if (get_gif_size(data, len, w, h))
      format = "GIF";
    else if (get_png_size(data, len, w, h))
      format = "PNG";
    else if (get_jpg_size(data, len, w, h))
      format = "JPEG";
    if (format) {
      std::printf("%s: %s %ux%u\n", argv[i], format, w, h);
    } else {
      std::fprintf(stderr, "cmutil: %s: not recognised: %s\n", argv[i], WhyNotRecognised(bytes));
      ++failures;
    }
  }
  return failures ? 1 : 0;
}

// ---------------------------------------------------------------- demo

class DemoItem : public IProcessData, public kel::CKelUnknownImpl {
 public:
  DemoItem() : kel::CKelUnknownImpl(1), created(std::chrono::steady_clock::now()) {}
  KEL_IMPLEMENT_UNKNOWN()
  uint32_t GetDataType() override { return 0; }
  void* GetData() override { return payload; }
  uint32_t GetDataLength() override { return sizeof payload; }
  const std::chrono::steady_clock::time_point created;
  unsigned char payload[64] = {};
};

// Middle stage: touches the payload and passes the item on (output channel 0).
class TransformUnit : public ProcessUnit {
 protected:
  IProcessData* _Process(IProcessData* aData, unsigned short) override {
    auto* item = static_cast<DemoItem*>(aData);
    for (unsigned char& b : item->payload) b = static_cast<unsigned char>(b + 1);
    aData->AddRef();
    return aData;
  }
};

// Last stage: measures the latency of each item.
class SinkUnit : public ProcessUnit {
 public:
  std::atomic<uint64_t> count{0};
  uint64_t totalNs = 0;  // written on the sink thread only, read after it is stopped
  uint64_t maxNs = 0;
  std::atomic<uint64_t>* inFlight = nullptr;

 protected:
  IProcessData* _Process(IProcessData* aData, unsigned short) override {
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() -
                                                                         static_cast<DemoItem*>(aData)->created)
                        .count();
    totalNs += static_cast<uint64_t>(ns);
    maxNs = std::max(maxNs, static_cast<uint64_t>(ns));
    count.fetch_add(1, std::memory_order_relaxed);
    inFlight->fetch_sub(1, std::memory_order_relaxed);
    return nullptr;
  }
};

int pipeline_demo() {
  ACmThread* threads[3] = {nullptr, nullptr, nullptr};
  const char* names[3] = {"demo-source", "demo-unit", "demo-sink"};
  for (int i = 0; i < 3; ++i) {
    if (CreateUserTaskThread(names[i], threads[i], TF_JOINABLE, true) != CM_OK) {
      std::printf("  cannot start thread %s\n", names[i]);
      for (int j = 0; j < i; ++j) {
        threads[j]->Stop();
        threads[j]->Join();
        threads[j]->Destory(0);
      }
      return 1;
    }
  }

  ProcessModule* unitModule = new ProcessModule;
  ProcessModule* sinkModule = new ProcessModule;
  unitModule->AddRef();
  sinkModule->AddRef();
  SinkUnit* sink = new SinkUnit;
  std::atomic<uint64_t> inFlight{0};
  sink->inFlight = &inFlight;
  unitModule->SetProcessModuleInfo("transform", 1);
  unitModule->SetProcessUnit(new TransformUnit);
  unitModule->SetProcessModuleThread(threads[1]);
  sinkModule->SetProcessModuleInfo("sink", 2);
  sinkModule->SetProcessUnit(sink);
  sinkModule->SetProcessModuleThread(threads[2]);
  unitModule->AddDeliver(sinkModule, 0, 0);
  for (ProcessModule* m : {unitModule, sinkModule}) {
    m->InitModule();
    m->Start();
  }

  // The source runs on its own task thread for two seconds, keeping at most 256 items
  // in flight so that the measured latency is that of a loaded pipeline, not of an
  // ever-growing queue.
  std::mutex mu;
  std::condition_variable cv;
  bool sourceDone = false;
  uint64_t produced = 0;
  const auto start = std::chrono::steady_clock::now();
  threads[0]->GetEventQueue()->PostEvent(CmNewInvokeEvent([&] {
    const auto end = start + std::chrono::seconds(2);
    uint64_t n = 0;
    while (std::chrono::steady_clock::now() < end) {
      if (inFlight.load(std::memory_order_relaxed) >= 256) {
        std::this_thread::yield();
        continue;
      }
      inFlight.fetch_add(1, std::memory_order_relaxed);
      DemoItem* item = new DemoItem;
      unitModule->DeliverData(item, 0);
      item->Release();
      ++n;
    }
    std::lock_guard<std::mutex> lock(mu);
    produced = n;
    sourceDone = true;
    cv.notify_all();
  }));
  {
    std::unique_lock<std::mutex> lock(mu);
    cv.wait(lock, [&] { return sourceDone; });
  }
  // Let the stages finish what is in flight, then stop them in pipeline order.
  for (int i = 0; i < 3; ++i) {
    threads[i]->Stop();
    threads[i]->Join();
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const uint64_t received = sink->count.load();
  std::printf("  source -> transform -> sink on three task threads for %.2f s\n", seconds);
  std::printf("  items: %llu produced, %llu received (%s)\n", static_cast<unsigned long long>(produced),
              static_cast<unsigned long long>(received), produced == received ? "none lost" : "LOST ITEMS");
  std::printf("  throughput: %.0f items/s\n", static_cast<double>(received) / seconds);
  if (received) {
    std::printf("  latency per item: mean %.1f us, max %.1f us (at most 256 in flight)\n",
                static_cast<double>(sink->totalNs) / static_cast<double>(received) / 1000.0,
                static_cast<double>(sink->maxNs) / 1000.0);
  }
  unitModule->RemoveDeliver(sinkModule);
  unitModule->Release();
  sinkModule->Release();
  for (ACmThread* t : threads) t->Destory(0);
  return produced == received ? 0 : 1;
}

}  // namespace

CMUTIL_REGISTER_COMMAND("url", kUrlUsage, url_command);
CMUTIL_REGISTER_COMMAND("image", kImageUsage, image_command);
CMUTIL_REGISTER_DEMO(50, "pipeline: three stages on three task threads", pipeline_demo);
