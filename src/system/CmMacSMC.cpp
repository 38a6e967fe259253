// Sensor reader of the sampler over the hwmon and thermal-zone readers.

#include "system/CmMacSMC.h"

#include "platform/CmMonitorPlatform.h"

bool CMacSMC::Open(const char*) {
  double celsius = 0;
  unsigned rpm = 0;
  return cm_mon_cpu_temperature(celsius) || cm_mon_fan_rpm(rpm);
}

bool CMacSMC::ReadCpuTemperature(double& celsius) { return cm_mon_cpu_temperature(celsius); }

bool CMacSMC::ReadFanSpeed(unsigned& rpm) { return cm_mon_fan_rpm(rpm); }
