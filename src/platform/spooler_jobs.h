// The spooler's printer handles and the jobs in its queues, as the monitor
// asks for them: OpenPrinterA, ClosePrinter, EnumJobsA, GetJobA, SetJobA.
// A printer exists when the machine description names it under
// "System\CurrentControlSet\control\Print\Printers\<name>"; its jobs are the
// ones the host submitted (SubmitJob), the way a spooler queues what
// applications print.
#pragma once

#include "platform/win32_types.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace langmon {

constexpr DWORD JOB_CONTROL_CANCEL = 3;
constexpr DWORD JOB_CONTROL_LAST_PAGE_EJECTED = 7;
constexpr DWORD JOB_STATUS_PRINTING = 0x10;

// A handle for the printer of that name (case does not matter), or FALSE with
// ERROR_INVALID_PRINTER_NAME. `defaults` is not looked at.
BOOL OpenPrinterA(LPSTR printerName, HANDLE* printer, void* defaults);
BOOL ClosePrinter(HANDLE printer);

// Level 1 only. The two-call size rules of the other spooler calls.
BOOL GetJobA(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD size, LPDWORD needed);
BOOL EnumJobsA(HANDLE printer, DWORD firstJob, DWORD count, DWORD level, LPBYTE jobs, DWORD size,
               LPDWORD needed, LPDWORD returned);
// Level 0 with a command (JOB_CONTROL_CANCEL removes the job), or level 1
// with command 0, which stores the record's Status, Position and PagesPrinted.
BOOL SetJobA(HANDLE printer, DWORD jobId, DWORD level, LPBYTE job, DWORD command);

#ifndef ERROR_INVALID_PRINTER_NAME
#define ERROR_INVALID_PRINTER_NAME 1801u
#endif

namespace platform {

// A job in a printer's queue, as the host submits it.
struct SpoolerJob {
    DWORD jobId = 0;
    std::string userName;
    std::string document;
    std::string datatype = "RAW";
    DWORD status = 0;
    DWORD position = 0;
    DWORD pagesPrinted = 0;
};

void SubmitJob(const std::string& printerName, const SpoolerJob& job);
// The job leaves the queue, as a spooler deletes a job it has sent.
void RemoveJob(const std::string& printerName, DWORD jobId);
// The jobs of a printer's queue as they stand now.
std::vector<SpoolerJob> QueuedJobs(const std::string& printerName);
// How many jobs the printer has in its queue.
std::size_t QueuedJobCount(const std::string& printerName);
// Every SetJobA command given, as "jobId:command", in order.
std::vector<std::string> JobCommands();
// Empties every queue and the command record; printer handles stay valid.
void ForgetJobs();
size_t OpenPrinterHandleCount();

// For the spooler's other printer calls: where a handle's printer stands in
// the spooler's book of printers of `generation` (spooler_printers.cpp). A
// handle remembers the place its printer had in the last book it was asked
// about, so that a host asking about one printer over and over finds it by
// its name once per reading of the book: only for another generation does
// `find` look the name up in `book` (NoPlace when it is not there). False
// with ERROR_INVALID_HANDLE as the last error for a handle that isn't open.
constexpr std::size_t NoPlace = SIZE_MAX;
using PlaceFinder = std::size_t (*)(const void* book, std::string_view name);
bool PrinterPlaceOf(HANDLE printer, std::uint64_t generation, PlaceFinder find, const void* book,
                    std::size_t* index);

}  // namespace platform
}  // namespace langmon
