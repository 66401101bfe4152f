// The query parser against a slow writing of the same rules, and against what the builder makes.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "kit/NSURL+Kelto.h"

using namespace NSURL::Kelto;

namespace {

using Items = std::vector<QueryItems::Item>;

std::vector<std::string> split(const std::string& text, const std::string& separators) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (separators.find(c) != std::string::npos)
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

std::string withSpaces(std::string text) {
  for (char& c : text)
    if (c == '+') c = ' ';
  return text;
}

// ASCII only: no pieces of the generator make an escaped character above 127.
bool decode(const std::string& text, std::string& result) {
  result.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return false;
    for (const char digit : {text[i + 1], text[i + 2]})
      if (std::string("0123456789abcdefABCDEF").find(digit) == std::string::npos) return false;
    result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
    i += 2;
  }
  for (const char c : result)
    if (static_cast<unsigned char>(c) > 127) return false;
  return true;
}

// The rules one after the other, a list searched from the front for every component.
std::map<std::string, std::string> slowItems(const std::string& query) {
  std::map<std::string, std::string> dictionary;
  for (const auto& component : split(query, "&?")) {
    const auto parts = split(component, "=");
    if (parts.size() != 2) continue;
    const std::string key = withSpaces(parts[0]);
    if (key.find_first_not_of(" \t") == std::string::npos) continue;
    std::string decodedKey;
    if (!decode(key, decodedKey)) continue;
    std::string value;
    if (decode(withSpaces(parts[1]), value))
      dictionary[decodedKey] = value;
    else
      dictionary.erase(decodedKey);
  }
  return dictionary;
}

rc::Gen<std::string> piece() {
  return rc::gen::element<std::string>("a", "b", "z", "=", "=", "&", "&", "?", "+", " ", "\t", "%20", "%", "%4", "%41",
                                       "%2B", "%26", "%fF", "a=", "b=1&", "%61=");
}

}  // namespace

RC_GTEST_PROP(QueryProperty, AgreesWithTheSlowWriting, ()) {
  std::string query;
  for (const auto& part : *rc::gen::container<std::vector<std::string>>(piece())) query += part;
  const QueryItems items = queryItems("kelto://host?" + query);
  const std::map<std::string, std::string> found(items.begin(), items.end());
  RC_CLASSIFY(found.size() > 1, "several keys");
  RC_ASSERT(found.size() == items.size());
  RC_ASSERT(found == slowItems(query));
}

RC_GTEST_PROP(QueryProperty, WhatTheBuilderMakesIsReadBackInItsOrder, ()) {
  const auto text = rc::gen::container<std::string>(rc::gen::inRange<char>(1, 127));
  QueryItems items;
  for (const auto& [key, value] : *rc::gen::container<Items>(rc::gen::pair(text, text)))
    if (!key.empty() && key.find_first_not_of('\t') != std::string::npos) items.setValue(key, value);
  const QueryItems again = queryItems("x:?" + queryStringWithDictionary(items));
  RC_ASSERT(Items(again.begin(), again.end()) == Items(items.begin(), items.end()));
}

RC_GTEST_PROP(QueryProperty, AnyBytesAtAllAreReadWithoutHarm, ()) {
  const auto items = queryItems("?" + *rc::gen::container<std::string>(rc::gen::arbitrary<char>()));
  for (const auto& [key, value] : items) RC_ASSERT(items.valueForKey(key).has_value());
}
