#pragma once
// Fields of a statement: what programs look for, beside the text that people read.
//
//   site.error(LogFields{{"user", name}, {"tries", 3}}, "%@ cannot log in", name);
//
// JSONLinesLogFormatter shows them; a logger of one's own reads them from the record (DDLogMessage::fields).
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Api.h"
#include "foundation/text/Format.h"

struct LogField {
  std::string_view key;
  foundation::FormatArgument value;
};

// The fields of one statement, in the order in which they are written there. Borrows everything: for use in the statement
// itself.
class KELTO_API LogFields {
 public:
  LogFields(std::initializer_list<LogField> fields) : _fields(fields) {}
  // Appends them as they lie in a record. A field that does not fit into 65,535 bytes with those before it is left out.
  void encode(std::string& bytes) const;

 private:
  const std::initializer_list<LogField> _fields;
};

// Takes the fields of a record apart, from the first to the last:
//
//   for (auto fields = message.fields(); const auto field = fields.next();) ...
class KELTO_API LogFieldReader {
 public:
  static constexpr std::size_t longest = 65535;  // of all fields together, in bytes

  struct Field {
    std::string_view key;
    std::string_view value;  // as %@ shows it
    bool isNumber;           // of the decimal kind, with digits only besides "-", "+", "." and "e"
  };

  explicit LogFieldReader(std::string_view bytes) : _rest(bytes) {}
  // nullopt at the end, and where bytes are not as `encode` writes them. Borrows from the record.
  std::optional<Field> next();

 private:
  std::string_view _rest;
};
