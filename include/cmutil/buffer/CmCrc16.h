#pragma once
/// CRC-16 over a byte range or over the readable bytes of a message-block chain: the
/// reflected form of the polynomial 0x8005 (the CRC-16 of ARC), table driven, with no
/// built-in initial value and no final XOR. The caller picks the starting value (0 for
/// the usual check value: "123456789" gives 0xBB3D) and keeps the running value between
/// calls, so a message can be checked in pieces.
///
/// The tables are built once per process, on the first checksum, inside a singleton made
/// under the library's singleton mutex; afterwards they are only read, so every function
/// here may be called from any thread. Cost: about one table lookup per byte, several
/// bytes per step on long ranges.

#include "cmutil/base/CmExport.h"

class CCmMessageBlock;

/// Advances `crc` over `length` bytes at `data`, stores the new value in `crc` and returns
/// it. Null `data`: assertion "pData", returns 0 and leaves `crc` unchanged.
CM_EXPORT unsigned short CalcCRC16(unsigned short& crc, unsigned char* data, unsigned int length);

/// The same over the first `length` readable bytes of `chain`, block by block. A block's
/// readable length counts only modulo 65536 (its low 16 bits). Returns the final `crc`.
CM_EXPORT unsigned short CalcCRC16_m(unsigned short& crc, CCmMessageBlock& chain, unsigned int length);

/// Fills `CRC16_H_TABLE` and `CRC16_L_TABLE` (and the wider tables used for long
/// ranges). Idempotent; the checksum functions run it themselves through the singleton.
CM_EXPORT void GenerateCRCTable();

/// Low byte of the 16-bit table value for each index.
CM_EXPORT extern unsigned char CRC16_H_TABLE[256];
/// High byte of the 16-bit table value for each index.
CM_EXPORT extern unsigned char CRC16_L_TABLE[256];

/// Builds the tables in its constructor; one instance lives in `CCmSingletonT`.
class CM_EXPORT CRCTAbleInit {
 public:
  CRCTAbleInit();
};
