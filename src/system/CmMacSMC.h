#pragma once
// The machine's temperature and fan sensors under the name the sampler knows them by.
// On Linux they are hwmon and thermal-zone files; Open fails when there is neither a CPU
// temperature nor a fan to read.

class CMacSMC {
 public:
  /// Opens the sensor service (the name is kept for callers; Linux has one source).
  bool Open(const char* service);
  /// CPU temperature in degrees Celsius; false when unreadable now.
  bool ReadCpuTemperature(double& celsius);
  /// Fan speed in RPM; false when unreadable now.
  bool ReadFanSpeed(unsigned& rpm);
};
