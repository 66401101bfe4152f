#pragma once
// Lines on their way into one log file: put together until there are enough for one write. One thread at a time.
//
// Lines that the file system did not take stay here and are tried again with the next; when there is no more room for them
// the new ones are dropped, which goes to the system log once for each time of trouble, and with their number when that is
// over.
#include <memory>
#include <string>
#include <string_view>

#include "foundation/dispatch/Fork.h"
#include "logging/LogJournal.h"

class LogFileWriter {
 public:
  // `journal` may be nullptr; then the lines die with the process.
  LogFileWriter(std::shared_ptr<LogJournal> journal, platform::SystemLog& systemLog);
  ~LogFileWriter();
  LogFileWriter(const LogFileWriter&) = delete;
  LogFileWriter& operator=(const LogFileWriter&) = delete;

  // Writes to `file` at `path` from now on.
  void open(std::unique_ptr<platform::LogFile> file, const std::string& path);
  [[nodiscard]] bool isOpen() const { return _file != nullptr; }
  // Lines that could not be written are kept for the next file. Gives the file back.
  std::unique_ptr<platform::LogFile> close();

  // Around the lines of the record that is being delivered: when it ends it needs no recovery, whether or not it gave a
  // line.
  void beginRecord() { _ticket = !_journal ? 0 : _journal->ticket() + 1; }
  void endRecord();
  // There is no file for a record: it is counted.
  void drop();
  // Says how many records were dropped since that was last said, though the trouble may last.
  void reportDropped();
  // One line; a line feed is added when it has none at its end. Without a file it goes nowhere.
  void append(std::string_view text);
  // The same at once; false when the file system did not take it. The rest of a line that it took in part is kept.
  bool writeAtOnce(std::string_view text);
  void write();

  [[nodiscard]] bool hasLines() const { return _lines->length() > 0; }
  // The size of the file with the lines that are still here.
  [[nodiscard]] std::uint64_t offset() const { return _fileSize + _lines->length(); }
  // The size of the file itself.
  [[nodiscard]] std::uint64_t fileSize() const { return _fileSize; }

  // Looks where the file is, and follows: `path` is where it should be. When it was deleted, what was written into
  // nowhere since the last look goes into the next file.
  enum class Whereabouts { there, gone };
  Whereabouts verify(const std::string& path);

  // In a forked child: the lines are the parent's.
  void forget();

 private:
  [[nodiscard]] bool isOwnFile() const { return _file && _generation == foundation::Fork::generation(); }
  void endHalfLine();
  void put(std::string_view text, std::string_view end);
  void writeThrough(std::string_view text);
  void report(int error);

  const std::shared_ptr<LogJournal> _journal;
  platform::SystemLog& _systemLog;
  std::unique_ptr<LogLines> _ownLines;
  LogLines* _lines;
  std::unique_ptr<platform::LogFile> _file;
  std::uint64_t _fileSize = 0;      // as far as this process knows
  std::uint64_t _verifiedSize = 0;  // at the last look that found the file in its place
  std::string _salvaged;            // out of a file that was deleted
  std::uint64_t _ticket = 0;
  std::uint32_t _generation = 0;  // of the process that opened the file: no other one writes
  bool _isInTrouble = false;
  std::uint64_t _dropped = 0;
};
