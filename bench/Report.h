#pragma once
// Shared by the benchmark programs: interleaved rounds, medians, the table for people and the list for programs.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// Keeps the compiler from leaving out the work whose result this is.
template <class T>
void keep(const T& value) {
  asm volatile("" : : "r,m"(value) : "memory");
}

inline double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

// The median seconds of each work, all run in turn, `rounds` times after one round that does not count.
inline std::vector<double> inTurn(const std::vector<std::function<void()>>& works, int rounds = 9) {
  std::vector<std::vector<double>> taken(works.size());
  for (int round = -1; round < rounds; ++round)
    for (std::size_t i = 0; i < works.size(); ++i) {
      const double seconds = secondsOf(works[i]);
      if (round >= 0) taken[i].push_back(seconds);
    }
  std::vector<double> medians;
  for (const auto& values : taken) medians.push_back(median(values));
  return medians;
}

class Report {
 public:
  // `ratio` is how many times better than `against` the value is: than a peer, or than the bound that we set ourselves.
  void add(const std::string& figure, double value, const std::string& unit, const std::string& against, double ratio) {
    _rows.push_back({figure, value, unit, against, ratio});
  }
  // A figure that stands by itself.
  void add(const std::string& figure, double value, const std::string& unit) {
    _rows.push_back({figure, value, unit, "", std::nullopt});
  }

  void print() const {
    for (const auto& row : _rows) {
      std::printf("%-58s %12.4g %-10s", row.figure.c_str(), row.value, row.unit.c_str());
      if (row.ratio) std::printf(" %8.2f times better than %s", *row.ratio, row.against.c_str());
      std::printf("\n");
    }
  }

  [[nodiscard]] bool write(const char* path) const {
    std::ofstream file(path);
    file << "[";
    for (std::size_t i = 0; i < _rows.size(); ++i) {
      const auto& row = _rows[i];
      file << (i == 0 ? "\n" : ",\n") << R"(  {"figure": ")" << row.figure << R"(", "value": )" << row.value
           << R"(, "unit": ")" << row.unit << R"(", "against": )" << (row.ratio ? '"' + row.against + '"' : "null")
           << R"(, "ratio": )" << (row.ratio ? std::to_string(*row.ratio) : "null") << "}";
    }
    file << "\n]\n";
    return static_cast<bool>(file.flush());
  }

 private:
  struct Row {
    std::string figure;
    double value;
    std::string unit;
    std::string against;
    std::optional<double> ratio;
  };
  std::vector<Row> _rows;
};

}  // namespace bench
