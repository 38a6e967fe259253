#pragma once
/// Object interfaces over the machine facts of CmSystemInfo.h, for callers that take
/// their facts through an interface pointer (and can be handed a fake one in tests).
/// The methods call the matching free function and turn any failure into
/// CM_ERROR_FAILURE. The objects hold no state; any thread may use them.

#include <string>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

/// Kinds of network interface, as GetNetworkInterfaceType reports them.
enum nw_interface_type_t {
  nw_interface_type_other = 0,
  nw_interface_type_wifi = 1,
  nw_interface_type_cellular = 2,
  nw_interface_type_wired = 3,
  nw_interface_type_loopback = 4
};

/// A network interface as the network code describes it.
struct nw_interface {
  char name[16];
  nw_interface_type_t type;
};

/// Mix-in giving an interface a default init() that succeeds.
template <class Interface>
class Iinit : public Interface {
 public:
  CmResult init() override { return CM_OK; }
};

class CM_EXPORT ISystemInformation {
 public:
  virtual ~ISystemInformation() = default;
  virtual CmResult init() = 0;
  virtual CmResult QueryOSVersionString(std::string& version) = 0;
  virtual CmResult GetCPUBrand(char* brand, int size) = 0;
  virtual CmResult GetCPUCore(unsigned int& physical_cores, unsigned int& threads_per_core) = 0;
  virtual CmResult GetCPUFrequency(unsigned int& frequency_mhz) = 0;
  virtual CmResult GetCPUArch(char* arch, int size) = 0;
  virtual CmResult GetMemorySize(unsigned long long& memory_mb) = 0;
  virtual nw_interface_type_t GetNetworkInterfaceType(nw_interface* interface) = 0;
};

class CM_EXPORT CmSystemInformation : public Iinit<ISystemInformation> {
 public:
  CmSystemInformation();
  /// Not available on this platform: CM_ERROR_NOT_IMPLEMENTED, version untouched.
  CmResult QueryOSVersionString(std::string& version) override;
  CmResult GetCPUBrand(char* brand, int size) override;
  CmResult GetCPUCore(unsigned int& physical_cores, unsigned int& threads_per_core) override;
  CmResult GetCPUFrequency(unsigned int& frequency_mhz) override;
  CmResult GetCPUArch(char* arch, int size) override;
  CmResult GetMemorySize(unsigned long long& memory_mb) override;
  /// The interface's own type, unchanged (other for null).
  nw_interface_type_t GetNetworkInterfaceType(nw_interface* interface) override;
};

class CM_EXPORT ISystemAPI {
 public:
  virtual ~ISystemAPI() = default;
  virtual CmResult init() = 0;
};

class CM_EXPORT CmSystemAPI : public Iinit<ISystemAPI> {
 public:
  CmSystemAPI();
};
