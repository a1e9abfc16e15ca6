// A search whose trials are run elsewhere: JSON lines on two descriptors, questions out, answers
// in. docs/farm.md tells the lines; this is the side that asks and what both sides write and read.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/tuning/scorer.h"

namespace vorn::tool {

// One sample under one tuning, or, for inputs, under none.
struct question {
  enum class kind { input, luma, chroma };
  kind what = kind::input;
  int64_t id = 0;
  double gain = 1;
  int64_t sample = 0;  // of that gain, from 0
  tuning values = {};  // luma: the one to try; chroma: the one to try, on the result of luma
  bool all = false;    // every figure, not only those that the objective needs
};

struct answer {
  int64_t id = 0;
  sample_input figures = {};  // of the half that was asked; of both for inputs
  std::string error = {};     // why there are no figures
};

// Without the line's end. Numbers are written so that they read back to the same bits.
std::string to_line(const question& q);
std::string to_line(const answer& a);

// What a line of the asking side is to the one that answers.
struct job_lines {
  std::string version, folder;
  std::vector<std::string> arguments;  // of `tune`
};
enum class line_kind { job, question, other, end };
// Fills in the one of job and q that the line is; an `error` when it is neither whole nor another
// known line.
line_kind parse_line(const std::string& line, job_lines& job, question& q);

// False: the line asks to stop. An `error` when it is neither.
bool parse_answer(const std::string& line, answer& a);

class engine_channel {
 public:
  // Reads in and writes out, which stay the caller's. Sets stop when the other side says so or
  // fails.
  engine_channel(int in, int out, std::atomic<bool>& stop);

  void send(const std::string& line);
  // The figures by place, those of questions without an answer when *stop became true left out.
  // Numbers the questions itself.
  std::vector<std::pair<bool, sample_input>> ask(std::vector<question> questions);
  // Writes what is waiting, for two seconds at most.
  void finish();
  // Why it ended early; empty while all is well.
  const std::string& fault() const { return fault_; }

 private:
  void turn(int timeout_ms);
  void read_some();
  void write_some();
  void take(const std::string& line);
  void fail(const std::string& cause);

  int in_, out_;
  std::atomic<bool>& stop_;
  std::string fault_;
  std::string incoming_, outgoing_;
  size_t sent_ = 0;    // of outgoing_
  bool deaf_ = false;  // nobody takes what is written
  int64_t lines_ = 0, next_id_ = 1;
  std::unordered_map<int64_t, size_t> open_;  // place of the questions that wait
  std::vector<std::pair<bool, sample_input>> answers_;
};

// The trials of one gain through the channel, which has to stay.
std::unique_ptr<scorer> score_elsewhere(engine_channel& channel, double gain,
                                        std::vector<sample_input> inputs);
// The input of every sample of a gain, asked for; fewer when it was stopped.
std::vector<sample_input> ask_inputs(engine_channel& channel, double gain, size_t samples);

// First line: everything that a side that answers has to know.
std::string job_line(const job_lines& job, const std::vector<std::pair<double, size_t>>& samples);
std::string progress_line(double gain, int step, int steps, const std::string& note, double done);
// before and after in dB, luma then chroma; none where that half was not searched.
std::string found_line(double gain, int trials, bool stopped,
                       const std::vector<std::pair<double, double>>& halves);
// error empty: none.
std::string end_line(bool stopped, const std::string& output, const std::string& error);

constexpr int kAskTellProtocol = 1;

}  // namespace vorn::tool
