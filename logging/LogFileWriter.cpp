#include "logging/LogFileWriter.h"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

#include "foundation/text/Format.h"

namespace {

// A byte less than there is, for the end of a half line.
constexpr std::size_t roomForLines = LogLines::capacity - 1;

}  // namespace

LogFileWriter::LogFileWriter(std::shared_ptr<LogJournal> journal, platform::SystemLog& systemLog)
    : _journal(std::move(journal)), _systemLog(systemLog), _lines(_journal ? _journal->claimLines() : nullptr) {
  if (_lines != nullptr) return;
  _ownLines = std::make_unique_for_overwrite<LogLines>();
  _lines = _ownLines.get();
  _lines->setState(0, 0);
}

LogFileWriter::~LogFileWriter() {
  if (!_ownLines) _journal->returnLines();
}

void LogFileWriter::open(std::unique_ptr<platform::LogFile> file, const std::string& path) {
  _file = std::move(file);
  _generation = foundation::Fork::generation();
  _fileSize = _verifiedSize = _file->size();
  const bool isContinued = hasLines() && path == _lines->path && _fileSize == _lines->fileSize;
  _lines->fileSize = _fileSize;
  const std::size_t length = path.size() < LogLines::longestPath ? path.size() : 0;
  path.copy(_lines->path, length);
  _lines->path[length] = '\0';
  if (!isContinued && _fileSize > 0 && _file->contentsFrom(_fileSize - 1) != "\n") endHalfLine();
  if (!_salvaged.empty()) writeThrough(std::exchange(_salvaged, {}));
}

// A process that was killed while it wrote may have left half a line. On a full disk the line feed waits before the lines.
void LogFileWriter::endHalfLine() {
  int error = 0;
  const std::size_t written = _file->append("\n", error);
  _fileSize += written;
  _lines->fileSize = _fileSize;
  const std::size_t length = _lines->length();
  if (written > 0 || (length > 0 && _lines->bytes[0] == '\n')) return;
  std::memmove(_lines->bytes + 1, _lines->bytes, length);
  _lines->bytes[0] = '\n';
  _lines->setState(length + 1, _lines->nextTicket());
}

std::unique_ptr<platform::LogFile> LogFileWriter::close() {
  if (_file) write();
  return std::move(_file);
}

void LogFileWriter::append(std::string_view text) {
  if (!_file) return;
  const std::string_view end = text.ends_with('\n') ? "" : "\n";
  const std::size_t length = text.size() + end.size();
  if (_lines->length() + length > roomForLines) write();
  if (_lines->length() + length <= roomForLines)
    put(text, end);
  else if (_lines->length() == 0)
    writeThrough(std::string(text).append(end));
  else
    ++_dropped;
}

void LogFileWriter::drop() {
  ++_dropped;
  if (!std::exchange(_isInTrouble, true)) _systemLog.log("DDFileLogger: There is no log file to write to");
}

// The text comes from the memory of a process that died. It must not lie in the memory of this one, too: should this one
// die as well, the next would find it twice.
bool LogFileWriter::writeAtOnce(std::string_view text) {
  write();
  if (!isOwnFile() || _lines->length() > 0) return false;
  const std::string line = std::string(text).append(text.ends_with('\n') ? "" : "\n");
  int error = 0;
  const std::size_t written = _file->append(line, error);
  _fileSize += written;
  _lines->fileSize = _fileSize;
  const std::string_view rest = std::string_view(line).substr(written);
  if (!rest.empty() || _isInTrouble) report(error);
  if (written == 0) return false;
  const bool fits = rest.size() <= roomForLines;
  put(fits ? rest : "\n", "");
  return fits;
}

void LogFileWriter::put(std::string_view text, std::string_view end) {
  const std::size_t length = _lines->length();
  text.copy(_lines->bytes + length, text.size());
  end.copy(_lines->bytes + length + text.size(), end.size());
  _lines->setState(length + text.size() + end.size(), _ticket);
}

void LogFileWriter::endRecord() {
  if (_lines->nextTicket() != _ticket) _lines->setState(_lines->length(), _ticket);
}

void LogFileWriter::write() {
  const std::size_t length = _lines->length();
  if (!isOwnFile() || length == 0) return;
  int error = 0;
  const std::size_t written = _file->append({_lines->bytes, length}, error);
  if (written > 0 && written < length) std::memmove(_lines->bytes, _lines->bytes + written, length - written);
  _lines->setState(length - written, _lines->nextTicket());
  _fileSize += written;
  _lines->fileSize = _fileSize;
  if (written < length) report(error);
  if (written == length && _isInTrouble) report(0);
}

// Whole lines that have no room among the others.
void LogFileWriter::writeThrough(std::string_view text) {
  if (!isOwnFile()) return;
  int error = 0;
  const std::size_t written = _file->append(text, error);
  _fileSize += written;
  _lines->fileSize = _fileSize;
  if (written == text.size()) return;
  const std::string_view rest = text.substr(written);
  _dropped += static_cast<std::uint64_t>(std::ranges::count(rest, '\n'));
  // Half a line is ended, so that the next begins on its own.
  if (written > 0) put("\n", "");
  report(error);
}

void LogFileWriter::report(int error) {
  if (error == 0) {
    reportDropped();
  } else if (!_isInTrouble) {
    _systemLog.log("DDFileLogger: Error writing log file: " + std::generic_category().message(error));
  }
  _isInTrouble = error != 0;
}

void LogFileWriter::reportDropped() {
  if (_dropped == 0) return;
  _systemLog.log(foundation::formatted("DDFileLogger: %@ records could not be written", _dropped));
  _dropped = 0;
}

LogFileWriter::Whereabouts LogFileWriter::verify(const std::string& path) {
  const auto place = _file->placeOf(path);
  if (place == platform::LogFile::Place::there) {
    _fileSize = _verifiedSize = _file->size();
    _lines->fileSize = _fileSize;
    return Whereabouts::there;
  }
  if (place == platform::LogFile::Place::unlinked) _salvaged += _file->contentsFrom(_verifiedSize);
  _file.reset();
  return Whereabouts::gone;
}

void LogFileWriter::forget() {
  _lines->setState(0, 0);
  _file.reset();
  _salvaged.clear();
  _fileSize = _verifiedSize = 0;
  _dropped = 0;
}
