// The binary form: a header, objects, a table of their offsets, a trailer. Numbers are big-endian. Containers hold object
// numbers, so one object may be referred to many times, or by itself: the reader counts each expansion.
#include <algorithm>
#include <bit>
#include <cmath>
#include <span>

#include "foundation/plist/PropertyListForms.h"
#include "foundation/text/UTF16.h"

namespace foundation::PropertyList {
namespace {

constexpr std::size_t headerSize = 8;
constexpr std::size_t trailerSize = 32;
constexpr std::int64_t startOf2001 = 978'307'200;

std::uint64_t unsignedNumber(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char c : bytes) number = number << 8 | static_cast<unsigned char>(c);
  return number;
}

class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, std::string& reason) : _bytes(bytes), _reason(reason) {}

  std::optional<Value> document() {
    if (!readTrailer()) return std::nullopt;
    return object(_topObject, 0);
  }

 private:
  // One object as it lies in the file: kind and low half of the marker byte, and where its payload begins.
  struct Object {
    unsigned kind;
    unsigned low;
    std::size_t place;
  };

  std::nullopt_t refuse(std::string_view why) {
    if (_reason.empty()) _reason = why;
    return std::nullopt;
  }

  bool readTrailer() {
    if (_bytes.size() < headerSize + trailerSize || !_bytes.starts_with("bplist00")) {
      refuse("the binary property list has no header and trailer of a known version");
      return false;
    }
    const auto trailer = _bytes.substr(_bytes.size() - trailerSize);
    _offsetSize = static_cast<unsigned char>(trailer[6]);
    _referenceSize = static_cast<unsigned char>(trailer[7]);
    _objectCount = unsignedNumber(trailer.substr(8, 8));
    _topObject = unsignedNumber(trailer.substr(16, 8));
    _tablePlace = unsignedNumber(trailer.substr(24, 8));
    _end = _bytes.size() - trailerSize;
    if (trailerIsSound()) return true;
    refuse("the trailer of the binary property list does not fit its size");
    return false;
  }

  [[nodiscard]] bool trailerIsSound() const {
    if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8) return false;
    if (_tablePlace < headerSize || _tablePlace > _end) return false;
    return _objectCount <= (_end - _tablePlace) / _offsetSize && _topObject < _objectCount;
  }

  // `count` elements of `size` bytes at `place`, which is moved behind them.
  std::optional<std::string_view> take(std::size_t& place, std::uint64_t count, std::size_t size = 1) {
    if (place > _end || count > (_end - place) / size) return refuse("an object reaches beyond the end");
    const auto taken = _bytes.substr(place, count * size);
    place += taken.size();
    return taken;
  }

  std::optional<Object> objectAt(std::uint64_t number) {
    if (number >= _objectCount) return refuse("a reference names no object");
    const auto place = unsignedNumber(_bytes.substr(_tablePlace + number * _offsetSize, _offsetSize));
    if (place < headerSize || place >= _tablePlace) return refuse("an offset lies outside of the objects");
    const unsigned marker = static_cast<unsigned char>(_bytes[place]);
    return Object{marker >> 4U, marker & 0xFU, place + 1};
  }

  // The number of elements; a low half of 15 says that an integer with the count follows.
  std::optional<std::uint64_t> count(Object& object) {
    if (object.low != 0xF) return object.low;
    const auto marker = take(object.place, 1);
    if (!marker) return std::nullopt;
    const auto bits = static_cast<unsigned char>(marker->front());
    if (bits >> 4 != 1 || (bits & 0xF) > 3) return refuse("a count is not an integer");
    const auto bytes = take(object.place, std::uint64_t{1} << (bits & 0xF));
    if (!bytes) return std::nullopt;
    return unsignedNumber(*bytes);
  }

  bool spend(std::size_t bytes) {
    _spent += bytes;
    if (_spent <= maximumBytes) return true;
    refuse("shared references expand to more than " + std::to_string(maximumBytes) + " bytes");
    return false;
  }

  // An element, counted. Depth is that of the container which refers to it, plus one.
  std::optional<Value> object(std::uint64_t number, std::size_t depth) {
    if (++_values > maximumValues) return refuse("more than " + std::to_string(maximumValues) + " values");
    auto found = objectAt(number);
    if (!found) return std::nullopt;
    switch (found->kind) {
      case 0x0:
        return boolean(*found);
      case 0x1:
        return integer(*found);
      case 0x2:
        return real(*found);
      case 0x3:
        return date(*found);
      case 0x4:
        return data(*found);
      case 0x5:
      case 0x6:
        return string(*found);
      case 0x8:
        return refuse("identifiers of archived objects are not property-list values");
      case 0xA:
        return array(*found, depth);
      case 0xD:
        return dictionary(*found, depth);
      default:
        return refuse("an object is of an unknown kind");
    }
  }

  std::optional<Value> boolean(const Object& object) {
    if (object.low != 8 && object.low != 9) return refuse("a null or a filler is not a value");
    return Value(object.low == 9);
  }

  // One, two and four bytes hold an unsigned number, eight a signed one, sixteen one that needs a sign of its own.
  std::optional<Value> integer(Object object) {
    if (object.low > 4) return refuse("an integer has an unknown size");
    auto bytes = take(object.place, std::uint64_t{1} << object.low);
    if (!bytes) return std::nullopt;
    if (bytes->size() == 16) {
      const auto high = unsignedNumber(bytes->substr(0, 8));
      bytes = bytes->substr(8);
      const bool isNegative = (unsignedNumber(*bytes) >> 63) != 0;
      if (high != (isNegative ? ~std::uint64_t{0} : 0)) return refuse("an integer does not fit into 64 bits");
    }
    return Value(static_cast<std::int64_t>(unsignedNumber(*bytes)));
  }

  std::optional<double> floating(Object object) {
    if (object.low != 2 && object.low != 3) return refuse("a real number has an unknown size");
    const auto bytes = take(object.place, std::uint64_t{1} << object.low);
    if (!bytes) return std::nullopt;
    const auto bits = unsignedNumber(*bytes);
    if (object.low == 3) return std::bit_cast<double>(bits);
    return double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))};
  }

  std::optional<Value> real(const Object& object) {
    const auto number = floating(object);
    return number ? std::optional(Value(*number)) : std::nullopt;
  }

  std::optional<Value> date(const Object& object) {
    if (object.low != 3) return refuse("a date has an unknown size");
    const auto seconds = floating(object);
    if (!seconds) return std::nullopt;
    if (!std::isfinite(*seconds)) return refuse("a date is not a number");
    constexpr double farthest = 1e15;  // far beyond every date, and far within 64 bits
    const double whole = std::floor(std::clamp(*seconds, -farthest, farthest));
    const auto fraction = std::chrono::nanoseconds(static_cast<std::int64_t>(std::clamp(*seconds - whole, 0.0, 1.0) * 1e9));
    return Value(dateFromSeconds(static_cast<std::int64_t>(whole) + startOf2001, fraction));
  }

  std::optional<Value> data(Object object) {
    const auto length = count(object);
    if (!length) return std::nullopt;
    const auto bytes = take(object.place, *length);
    if (!bytes || !spend(bytes->size())) return std::nullopt;
    const auto span = std::as_bytes(std::span(*bytes));
    return Value(Data(span.begin(), span.end()));
  }

  std::optional<std::string> text(Object object) {
    const auto length = count(object);
    if (!length) return std::nullopt;
    const auto bytes = take(object.place, *length, object.kind == 0x6 ? 2 : 1);
    if (!bytes || !spend(bytes->size())) return std::nullopt;
    if (object.kind == 0x6) {
      auto decoded = utf8FromUTF16(*bytes, ByteOrder::big);
      if (!decoded) refuse("a string is not well-formed UTF-16");
      return decoded;
    }
    for (const char c : *bytes)
      if (static_cast<unsigned char>(c) > 127) return refuse("a string that should be ASCII is not");
    return std::string(*bytes);
  }

  std::optional<Value> string(const Object& object) {
    auto decoded = text(object);
    return decoded ? std::optional(Value(std::move(*decoded))) : std::nullopt;
  }

  std::optional<std::string> key(std::uint64_t number) {
    const auto found = objectAt(number);
    if (!found) return std::nullopt;
    if (found->kind != 0x5 && found->kind != 0x6) return refuse("a key of a dictionary is not a string");
    return text(*found);
  }

  // The references of a container, still as bytes.
  std::optional<std::string_view> references(Object& object, std::size_t depth, std::size_t perElement) {
    if (depth >= maximumDepth) return refuse("containers lie more than " + std::to_string(maximumDepth) + " deep");
    const auto elements = count(object);
    if (!elements) return std::nullopt;
    return take(object.place, *elements, _referenceSize * perElement);
  }

  [[nodiscard]] std::uint64_t reference(std::string_view references, std::size_t index) const {
    return unsignedNumber(references.substr(index * _referenceSize, _referenceSize));
  }

  std::optional<Value> array(Object container, std::size_t depth) {
    const auto elements = references(container, depth, 1);
    if (!elements) return std::nullopt;
    Array array;
    for (std::size_t i = 0; i < elements->size() / _referenceSize; ++i) {
      auto element = object(reference(*elements, i), depth + 1);
      if (!element) return std::nullopt;
      array.push_back(std::move(*element));
    }
    return Value(std::move(array));
  }

  std::optional<Value> dictionary(Object container, std::size_t depth) {
    const auto both = references(container, depth, 2);
    if (!both) return std::nullopt;
    const std::size_t entries = both->size() / _referenceSize / 2;
    Dictionary dictionary;
    for (std::size_t i = 0; i < entries; ++i) {
      auto name = key(reference(*both, i));
      if (!name) return std::nullopt;
      auto element = object(reference(*both, entries + i), depth + 1);
      if (!element) return std::nullopt;
      dictionary.insert_or_assign(dictionary.end(), std::move(*name), std::move(*element));
    }
    return Value(std::move(dictionary));
  }

  std::string_view _bytes;
  std::string& _reason;
  std::size_t _end = 0;  // where the trailer begins
  std::size_t _offsetSize = 0;
  std::size_t _referenceSize = 0;
  std::uint64_t _objectCount = 0;
  std::uint64_t _topObject = 0;
  std::uint64_t _tablePlace = 0;
  std::size_t _values = 0;
  std::size_t _spent = 0;
};

}  // namespace

std::optional<Value> parseBinary(std::string_view bytes, std::string& reason) {
  return BinaryReader(bytes, reason).document();
}

}  // namespace foundation::PropertyList
