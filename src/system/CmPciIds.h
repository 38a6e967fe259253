#pragma once
// The PCI ID database (pci.ids) text: vendor lines "vvvv  Name", device lines
// "\tdddd  Name", subsystem lines with two tabs, comments with "#".

#include <string>

#include "cmutil/base/CmExport.h"

/// Names of vendor and device in pci.ids text; true when the vendor is listed
/// (device_name stays empty when the device is not). Safe on any bytes.
CM_EXPORT bool cm_pci_ids_lookup(const std::string& text, unsigned vendor, unsigned device, std::string& vendor_name,
                                 std::string& device_name);
