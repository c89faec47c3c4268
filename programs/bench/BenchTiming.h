// Timing helpers of the benchmark hosts. Every figure is a median over
// rounds in which all the cases it is compared with run one after another
// (interleaved), so that a slow moment of the machine touches them alike;
// figures are printed as ratios to each other and gathered into a summary.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace kwbench {

// Nanoseconds on the performance counter.
inline double NowNs() {
  static const double nsPerTick = [] {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return 1e9 / static_cast<double>(frequency.QuadPart);
  }();
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return static_cast<double>(now.QuadPart) * nsPerTick;
}

inline double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// One measured operation; `call` performs it once (the std::function call
// adds a few nanoseconds to every case alike).
struct Case {
  std::string name;
  std::function<void()> call;
  double ns = 0;  // median nanoseconds per call, set by RunInterleaved
};

// Nanoseconds that `calls` calls of `call` take together.
inline double TimeBatch(const std::function<void()>& call, long calls) {
  const double start = NowNs();
  for (long i = 0; i < calls; ++i) call();
  return NowNs() - start;
}

// Warms every case up and sizes its batch to about `batchMs`, then runs
// `rounds` rounds of one batch per case and stores each case's median.
inline void RunInterleaved(std::vector<Case>& cases, int rounds = 11, double batchMs = 2) {
  std::vector<long> calls;
  for (Case& c : cases) {
    long n = 1;
    double ns = TimeBatch(c.call, n);
    while (ns < 0.3e6 && n < (1L << 22)) ns = TimeBatch(c.call, n *= 2);
    calls.push_back(std::max(1L, static_cast<long>(n * batchMs * 1e6 / std::max(ns, 1.0))));
  }
  std::vector<std::vector<double>> samples(cases.size());
  for (int round = 0; round < rounds; ++round)
    for (size_t i = 0; i < cases.size(); ++i) samples[i].push_back(TimeBatch(cases[i].call, calls[i]) / calls[i]);
  for (size_t i = 0; i < cases.size(); ++i) cases[i].ns = Median(samples[i]);
}

inline void Section(const char* title) { std::printf("\n== %s\n", title); }

// One line per case: its median and its ratio to each of `baselines`
// (indices into `cases`).
inline void PrintCases(const std::vector<Case>& cases, std::initializer_list<size_t> baselines) {
  for (const Case& c : cases) {
    std::printf("  %-46s %10.0f ns", c.name.c_str(), c.ns);
    for (size_t b : baselines) std::printf("   x%7.2f %s", c.ns / cases[b].ns, cases[b].name.c_str());
    std::printf("\n");
  }
}

// The summary printed at the end of a run: one figure per row.
struct SummaryRow {
  std::string section, measure;
  double value;
  const char* unit;
};

inline std::vector<SummaryRow>& Summary() {
  static std::vector<SummaryRow> rows;
  return rows;
}

inline void Note(const std::string& section, const std::string& measure, double value, const char* unit = "x") {
  Summary().push_back({section, measure, value, unit});
}

inline void PrintSummary(const char* title) {
  std::printf("\n== Summary: %s\n", title);
  std::printf("  %-18s %-64s %12s\n", "section", "measure", "figure");
  for (const SummaryRow& row : Summary())
    std::printf("  %-18s %-64s %11.2f%s\n", row.section.c_str(), row.measure.c_str(), row.value, row.unit);
}

}  // namespace kwbench
