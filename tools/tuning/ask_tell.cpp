#include "tools/tuning/ask_tell.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "tools/error.h"
#include "tools/text.h"

namespace vorn::tool {
namespace {

constexpr size_t kLongestLine = 1 << 20;

class far_scorer : public scorer {
 public:
  far_scorer(engine_channel& channel, double gain, std::vector<sample_input> inputs)
      : channel_(channel), gain_(gain), inputs_(std::move(inputs)) {}

  size_t samples() const override { return inputs_.size(); }
  std::vector<sample_input> inputs() override { return inputs_; }
  void use_luma(const tuning& t) override { luma_ = half_of(t, true); }

  // *stop does not matter: once the channel was stopped, nobody answers any more.
  trials_done run(const trials_wanted& wanted, const std::atomic<bool>*) override {
    std::vector<question> questions;
    for (const tuning& t : wanted.candidates) {
      question q;
      q.what = wanted.luma ? question::kind::luma : question::kind::chroma;
      q.gain = gain_;
      q.values = t;
      if (!wanted.luma) q.values.luma = luma_.luma;
      q.all = wanted.all;
      for (size_t i = 0; i < inputs_.size(); ++i) {
        q.sample = static_cast<int64_t>(i);
        questions.push_back(q);
      }
    }
    trials_done result(questions.size());
    const auto answers = channel_.ask(std::move(questions));
    for (size_t i = 0; i < answers.size(); ++i) {
      result.done[i] = answers[i].first;
      result.figures[i] = wanted.luma ? answers[i].second.luma : answers[i].second.chroma;
    }
    return result;
  }

 private:
  engine_channel& channel_;
  double gain_;
  std::vector<sample_input> inputs_;
  tuning luma_ = {};
};

}  // namespace

engine_channel::engine_channel(int in, int out, std::atomic<bool>& stop)
    : in_(in), out_(out), stop_(stop) {}

void engine_channel::send(const std::string& line) {
  outgoing_ += line;
  outgoing_ += '\n';
}

std::vector<std::pair<bool, sample_input>> engine_channel::ask(std::vector<question> questions) {
  answers_.assign(questions.size(), {});
  for (size_t i = 0; i < questions.size() && !stop_; ++i) {
    questions[i].id = next_id_++;
    open_[questions[i].id] = i;
    send(to_line(questions[i]));
  }
  while (!open_.empty() && !stop_) turn(100);
  open_.clear();  // what comes for these from now on comes too late
  return std::move(answers_);
}

void engine_channel::finish() {
  using clock = std::chrono::steady_clock;
  const auto latest = clock::now() + std::chrono::seconds(2);
  while (!outgoing_.empty() && !deaf_ && clock::now() < latest) turn(100);
}

// One side waiting for the other to read would never end: both directions go on in turn.
void engine_channel::turn(int timeout_ms) {
  std::array<pollfd, 2> wanted = {{{in_, POLLIN, 0}, {out_, POLLOUT, 0}}};
  if (outgoing_.empty()) wanted[1].fd = -1;
  if (poll(wanted.data(), wanted.size(), timeout_ms) <= 0) return;
  if (wanted[1].revents != 0) write_some();
  if (wanted[0].revents != 0) read_some();
}

void engine_channel::write_some() {
  // A pipe that is ready takes this much at once.
  const size_t count = std::min<size_t>(outgoing_.size() - sent_, 4096);
  const ssize_t written = write(out_, outgoing_.data() + sent_, count);
  if (written > 0) sent_ += static_cast<size_t>(written);
  if (sent_ == outgoing_.size()) {
    outgoing_.clear();
    sent_ = 0;
  }
  deaf_ = written < 0 && errno != EINTR && errno != EAGAIN;
  if (deaf_)
    fail(std::string("standard output: the engine takes no questions: ") + std::strerror(errno));
}

void engine_channel::read_some() {
  std::array<char, 65536> bytes;
  const ssize_t count = read(in_, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count <= 0) {
    return fail("standard input: the engine's answers ended" +
                (open_.empty() ? "" : " with " + std::to_string(open_.size()) + " to come"));
  }
  incoming_.append(bytes.data(), static_cast<size_t>(count));
  size_t begin = 0;
  for (size_t end = incoming_.find('\n'); end != std::string::npos && fault_.empty();
       end = incoming_.find('\n', begin)) {
    ++lines_;
    take(incoming_.substr(begin, end - begin));
    begin = end + 1;
  }
  incoming_.erase(0, begin);
  if (incoming_.size() > kLongestLine)
    fail("standard input: line " + std::to_string(lines_ + 1) + " does not end");
}

void engine_channel::take(const std::string& line) {
  if (line.find_first_not_of(" \t\r") == std::string::npos) return;
  const std::string where = "standard input: line " + std::to_string(lines_);
  answer a;
  try {
    if (!parse_answer(line, a)) {
      stop_ = true;
      return;
    }
  } catch (const error& fault) {
    return fail(where + " is no answer: " + fault.what() + ": " + printable(line.substr(0, 60)));
  }
  if (a.id < 1 || a.id >= next_id_)
    return fail(where + " answers question " + std::to_string(a.id) + ", which was not asked");
  const auto found = open_.find(a.id);
  if (found == open_.end()) return;  // answered twice, or too late
  if (!a.error.empty()) return fail(a.error);
  answers_[found->second] = {true, a.figures};
  open_.erase(found);
}

void engine_channel::fail(const std::string& cause) {
  if (fault_.empty()) fault_ = cause;
  stop_ = true;
}

std::unique_ptr<scorer> score_elsewhere(engine_channel& channel, double gain,
                                        std::vector<sample_input> inputs) {
  return std::make_unique<far_scorer>(channel, gain, std::move(inputs));
}

std::vector<sample_input> ask_inputs(engine_channel& channel, double gain, size_t samples) {
  std::vector<question> questions(samples);
  for (size_t i = 0; i < samples; ++i) {
    questions[i].gain = gain;
    questions[i].sample = static_cast<int64_t>(i);
    questions[i].all = true;
  }
  std::vector<sample_input> inputs;
  for (const auto& [done, figures] : channel.ask(std::move(questions)))
    if (done) inputs.push_back(figures);
  return inputs;
}

}  // namespace vorn::tool
