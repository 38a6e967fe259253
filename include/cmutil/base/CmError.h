#pragma once
/// Result codes. Nearly every operation returns a CmResult: 0 is success and every
/// failure has the form 0x46xxxxxx. Test success by equality with CM_OK
/// (CM_SUCCEEDED), never by sign.

#include <cstdint>

typedef int32_t CmResult;

constexpr CmResult CM_OK = 0;
constexpr CmResult CM_ERROR_GENERIC = 0x46000001;
constexpr CmResult CM_ERROR_FAILURE = 0x46004001;
constexpr CmResult CM_ERROR_OUT_OF_MEMORY = 0x46004002;
constexpr CmResult CM_ERROR_INVALID_ARG = 0x46004003;
constexpr CmResult CM_ERROR_NOT_IMPLEMENTED = 0x46004004;
constexpr CmResult CM_ERROR_NO_INTERFACE = 0x46004005;
constexpr CmResult CM_ERROR_NULL_POINTER = 0x46004006;
constexpr CmResult CM_ERROR_NOT_INITIALIZED = 0x46004008;
constexpr CmResult CM_ERROR_NOT_FOUND = 0x46004103;
constexpr CmResult CM_ERROR_ALREADY_CREATED = 0x46004132;
constexpr CmResult CM_ERROR_THREAD_CREATE = 0x46004133;
constexpr CmResult CM_ERROR_INCOMPLETE = 0x46004134;
constexpr CmResult CM_ERROR_FOUND = 0x46004136;
constexpr CmResult CM_ERROR_PARTIAL_DATA = 0x46004137;
constexpr CmResult CM_ERROR_TIMEOUT = 0x46004138;
constexpr CmResult CM_ERROR_ABORTED = 0x46004142;

#define CM_SUCCEEDED(rv) ((rv) == CM_OK)
#define CM_FAILED(rv) ((rv) != CM_OK)
