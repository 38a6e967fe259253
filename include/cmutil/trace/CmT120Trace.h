#pragma once
/// Trace files: the library's own rotating log files (route bit 2 of the trace option
/// word, see CmTrace.h), and the functions that open and write such files directly.
///
/// The trace core writes every message to "<folder>/<process>_info_<n>.log" and level-0
/// messages also to "<folder>/<process>_error_<n>.log", where <folder> is
/// "$XDG_STATE_HOME/<process>" (or "$HOME/.local/state/<process>") and n runs 0..9 and
/// back to 0. A file is replaced by the next number when it reaches 20 MiB or when the
/// local date changes.
///
/// File layout: a 32-byte header holding the decimal offset of the file's current end
/// ("%-31ld\n"), then the records, then the marker line
/// "************************* Current Trace Point *************************" and an
/// empty line, which the next flush overwrites. Records are gathered in memory and reach
/// the disk 10 KiB (one block) at a time; several processes may share one file through a
/// whole-file lock (the header offset is re-read under it at each flush).
///
/// Buffered records are flushed when the buffer is full, when a file is closed and at
/// process exit. All functions may be called from any thread.

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmString.h"

/// Opaque handle of an open trace file.
typedef void* CM_TRACE_DEV;

/// Opens (or returns the already open) trace file `path`, emptied on opening.
/// `sizeLimit` 0 means no limit; with `lockWanted` every flush runs under the whole-file
/// lock. `flag` is passed through unused. Null when the file cannot be created.
CM_EXPORT CM_TRACE_DEV T120_Open_Trace_Dev(const char* path, unsigned long sizeLimit, unsigned char lockWanted,
                                           unsigned char flag);
/// Flushes and closes the file; the handle is invalid afterwards. Unknown handles are
/// ignored.
CM_EXPORT void T120_Close_Trace_Dev(CM_TRACE_DEV dev);
/// Appends one record "[date time pid tid] [module] source:text". A null module and
/// source give "[date time pid tid] text". Unknown handles are ignored.
CM_EXPORT void T120_Write_Trace_Dev(CM_TRACE_DEV dev, const char* module, const char* source, const char* text);
/// Flushes every open trace file, then sets their size limit (0: none) and, when it
/// changes, their buffer size in 10 KiB blocks (at least 1).
CM_EXPORT void T120_Refresh_Settings(unsigned long sizeLimit, int blockCount);

/// The folder of the trace core's own files ("$XDG_STATE_HOME/<process>", else
/// "$HOME/.local/state/<process>"); empty when neither variable names a folder.
CM_EXPORT CCmString cm_trace_files_folder();
/// Opens the trace core's files now, as the first message of route bit 2 would (nothing
/// when they are open already). True when the information file is open.
CM_EXPORT bool cm_trace_files_open();
/// Path of the information file the trace core writes now; empty when none is open.
CM_EXPORT CCmString cm_trace_files_info_path();
/// Path of the error file the trace core writes now; empty when none is open.
CM_EXPORT CCmString cm_trace_files_error_path();
/// Writes the buffered records of every open trace file to disk.
CM_EXPORT void cm_trace_files_flush();
