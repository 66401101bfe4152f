#pragma once
// The exchange between the installer and the assistant tool. One run of the tool does one job: it reads an instruction
// from standard input (a length of 8 bytes in host order, then that many bytes of archive), does the job, writes the
// verdict into the result file and one line of text to standard output. Constants; any thread.
#include <cstddef>

namespace protocol {

// The keys of an instruction. Every instruction has a command and a result path; the others depend on the command.
inline constexpr const char* commandKey = "command";
inline constexpr const char* filePathKey = "file path";
inline constexpr const char* sourcePathKey = "source path";
inline constexpr const char* destinationPathKey = "destination path";
inline constexpr const char* resultPathKey = "result path";
inline constexpr const char* outputPathKey = "output path";

// The commands, with the keys that each needs.
inline constexpr const char* trashFileCommand = "trash file";          // file path
inline constexpr const char* removeFileCommand = "remove file";        // file path
inline constexpr const char* copyFileCommand = "copy file";            // source path, destination path
inline constexpr const char* moveFileCommand = "move file";            // source path, destination path
inline constexpr const char* replaceItemCommand = "replace item";      // source path (new item), destination path (old one)
inline constexpr const char* upgradeServerCommand = "upgrade server";  // file path of the application

// While the tool works it gives signs of life by the access time of the result file: now, about once a second, as long as
// bytes or entries move; and this time while it is in a call that takes as long as the disk needs. The caller gives a job
// up when there is neither a sign nor an answer for `longestSilence` seconds. A tool that knows no signs has that long for
// its whole job.
inline constexpr long longCallTime = 0;
inline constexpr long longestSilence = 60;

// The result file holds exactly this when the job is done, and nothing when it failed.
inline constexpr const char* successVerdict = "tool result ok";

// The reader takes an answer on standard output in pieces of this many bytes, and a shorter piece for the last: the tool
// keeps its line below it.
inline constexpr std::size_t answerChunk = 512;

// The line of a job that was done begins with it, and no other line does: who reads it and finds no verdict knows what is
// missing.
inline constexpr const char* doneMark = "job done: ";

// The variable in the environment of a tool that runs as root: the number of the user it works for.
inline constexpr const char* invokingUserVariable = "KELTO_INVOKING_UID";
// The number under which the broker's records name this run; a tool's own records carry it too.
inline constexpr const char* jobVariable = "KELTO_JOB";
// "1" when the caller's session holds the right to run any program.
inline constexpr const char* anyProgramVariable = "KELTO_ANY_PROGRAM";

}  // namespace protocol
