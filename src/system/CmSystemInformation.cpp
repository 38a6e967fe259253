// Interface objects over the machine facts.

#include "cmutil/system/CmSystemInformation.h"

#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

CmResult as_result(int status) { return status == 0 ? CM_OK : CM_ERROR_FAILURE; }

}  // namespace

CmSystemInformation::CmSystemInformation() { CM_INFO_TRACE_THIS(CM_FUNC_NAME); }

CmResult CmSystemInformation::QueryOSVersionString(std::string&) { return CM_ERROR_NOT_IMPLEMENTED; }

CmResult CmSystemInformation::GetCPUBrand(char* brand, int size) { return as_result(get_cpu_brand(brand, size)); }

CmResult CmSystemInformation::GetCPUCore(unsigned int& physical_cores, unsigned int& threads_per_core) {
  return as_result(get_cpu_core(physical_cores, threads_per_core));
}

CmResult CmSystemInformation::GetCPUFrequency(unsigned int& frequency_mhz) {
  return as_result(get_cpu_frequency(frequency_mhz));
}

CmResult CmSystemInformation::GetCPUArch(char* arch, int size) { return as_result(get_cpu_arch(arch, size)); }

CmResult CmSystemInformation::GetMemorySize(unsigned long long& memory_mb) {
  return as_result(get_memory_size(memory_mb));
}

nw_interface_type_t CmSystemInformation::GetNetworkInterfaceType(nw_interface* interface) {
  return interface ? interface->type : nw_interface_type_other;
}

CmSystemAPI::CmSystemAPI() { CM_INFO_TRACE_THIS(CM_FUNC_NAME); }
