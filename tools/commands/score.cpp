// vorn-ycnr score: answers the questions of `tune --ask-tell`, with the frames kept in memory.
#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands/score.h"
#include "tools/commands/tune_inputs.h"
#include "tools/error.h"
#include "tools/text.h"
#include "tools/threads.h"
#include "tools/tuning/ask_tell.h"

namespace vorn::tool {
namespace {

struct score_options {
  int threads = 0;
  std::string folder;
};

// One sample and, for chroma trials, its luma result under the tuning that was asked for last.
struct kept_sample {
  std::mutex lock;
  std::optional<tuning_sample> sample;
  std::optional<std::vector<int32_t>> luma_key;
  frame luma_result;
};

std::vector<int32_t> luma_values(const tuning& t) {
  std::vector<int32_t> values;
  for (int i = 0; i < kLumaFields; ++i) values.push_back(get_field(t, i));
  return values;
}

// The job, and the samples of one gain that were asked for.
class frame_store {
 public:
  explicit frame_store(const job_lines& job) {
    if (job.version != VORN_TOOL_VERSION)
      throw error("version", "the search is of " + printable(job.version) +
                                 ", this is " VORN_TOOL_VERSION "; the scores would not agree");
    CLI::App parser;
    add_tune_options(parser, o_);
    try {
      parser.parse(std::vector<std::string>(job.arguments.rbegin(), job.arguments.rend()));
    } catch (const CLI::ParseError& fault) {
      throw error("arguments", fault.what());
    }
    take_sensor(o_);
    goal_ = objective_of(o_.objective_name);
  }

  answer answer_to(const question& q, trial_runner& runner) {
    const std::shared_ptr<kept_sample> kept = find(q);
    trials_wanted wanted;
    wanted.luma = q.what != question::kind::chroma;
    wanted.all = q.all;
    const tuning t = half_of(q.values, wanted.luma);
    answer a;
    a.id = q.id;
    std::unique_lock<std::mutex> guard(kept->lock);
    if (!kept->sample) read(q, *kept);
    const tuning_sample& s = *kept->sample;
    if (q.what == question::kind::input) {
      check_sample(o_, q.gain, static_cast<size_t>(q.sample), s);
      guard.unlock();
      a.figures = figures_of_input(s, goal_);
      return a;
    }
    if (!wanted.luma) use_luma(q, *kept, runner);
    const frame& from = wanted.luma ? s.noisy : kept->luma_result;
    frame input = from;
    guard.unlock();  // the sample itself stays as it is from now on
    naming(s.name, [&] {
      sample_figures& half = wanted.luma ? a.figures.luma : a.figures.chroma;
      half = runner.run(std::move(input), t, s.held_against(), wanted, goal_);
    });
    return a;
  }

 private:
  std::shared_ptr<kept_sample> find(const question& q) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (q.gain != gain_) kept_.clear();
    gain_ = q.gain;
    std::shared_ptr<kept_sample>& place = kept_[q.sample];
    if (!place) place = std::make_shared<kept_sample>();
    return place;
  }

  void read(const question& q, kept_sample& kept) const {
    const int64_t count = static_cast<int64_t>(sample_count(o_, q.gain));
    if (q.sample < 0 || q.sample >= count)
      throw error("sample " + std::to_string(q.sample), "is none of the job's");
    kept.sample = sample_at(o_, q.gain, static_cast<size_t>(q.sample));
  }

  static void use_luma(const question& q, kept_sample& kept, trial_runner& runner) {
    const tuning luma_only = half_of(q.values, true);
    const std::vector<int32_t> key = luma_values(luma_only);
    if (kept.luma_key == key) return;
    kept.luma_key.reset();
    kept.luma_result = kept.sample->noisy;
    naming(kept.sample->name, [&] { runner.denoise(kept.luma_result, luma_only); });
    kept.luma_key = key;
  }

  tune_options o_;
  objective goal_ = objective::psnr;
  std::mutex lock_;
  double gain_ = 0;
  std::map<int64_t, std::shared_ptr<kept_sample>> kept_;
};

// Questions in, answers out, on several threads or on the caller's. Where the system has no thread
// left for a denoiser, the thread that wanted it hands its question back and ends; the last one
// ends the program, so that whoever asked asks another one.
class answering {
 public:
  explicit answering(int threads) {
    // With its denoiser's, each is two.
    const int most = threads > 1 ? std::min(threads, threads_to_be_had(2 * threads) / 2) : 0;
    const std::lock_guard<std::mutex> guard(lock_);
    while (most > 1 && working_ < most && group_.start([this] { work(); })) ++working_;
    has_threads_ = working_ > 0;
  }
  ~answering() { end(); }
  answering(const answering&) = delete;
  answering& operator=(const answering&) = delete;

  // The questions to come are about this job.
  void begin(const job_lines& job) { store_ = std::make_shared<frame_store>(job); }

  // Throws no_threads where there is none but the caller's, and it cannot answer.
  void take(const question& q) {
    if (!store_) throw error("", "a question before the job");
    if (!has_threads_) return reply(q, *store_, own_);
    const std::lock_guard<std::mutex> guard(lock_);
    waiting_.emplace_back(q, store_);
    ready_.notify_one();
  }

  // Waits until what is waiting has been answered.
  void end() {
    {
      const std::lock_guard<std::mutex> guard(lock_);
      ended_ = true;
    }
    ready_.notify_all();
    group_.join();
  }

 private:
  // Ends when no question is left, nor one on its way that might be handed back.
  void work() {
    trial_runner runner;
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
      ready_.wait(guard, [&] { return !waiting_.empty() || (ended_ && answering_ == 0); });
      if (waiting_.empty()) {
        --working_;
        return;
      }
      const auto [q, store] = waiting_.front();
      waiting_.pop_front();
      ++answering_;
      guard.unlock();
      try {
        reply(q, *store, runner);
      } catch (const no_threads& fault) {
        guard.lock();
        if (working_ == 1) give_up(fault);
        --working_;
        --answering_;
        waiting_.emplace_front(q, store);
        ready_.notify_one();
        return;
      }
      guard.lock();
      if (--answering_ == 0 && ended_) ready_.notify_all();
    }
  }

  // The other thread waits for lines and cannot be told.
  [[noreturn]] void give_up(const no_threads& fault) {
    const std::lock_guard<std::mutex> guard(output_);
    note(fault.what());
    std::_Exit(kExitBadInput);
  }

  void reply(const question& q, frame_store& store, trial_runner& runner) {
    answer a;
    a.id = q.id;
    try {
      a = store.answer_to(q, runner);
    } catch (const std::bad_alloc&) {
      a.error = "out of memory";
    } catch (const no_threads&) {
      throw;
    } catch (const std::exception& fault) {
      a.error = fault.what();
    }
    const std::string line = to_line(a) + "\n";
    const std::lock_guard<std::mutex> guard(output_);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
  }

  thread_group group_;
  bool has_threads_ = false, ended_ = false;
  int working_ = 0;    // threads that take questions
  int answering_ = 0;  // of them, those that have one
  trial_runner own_;
  std::shared_ptr<frame_store> store_;
  std::mutex lock_, output_;
  std::condition_variable ready_;
  std::deque<std::pair<question, std::shared_ptr<frame_store>>> waiting_;
};

void go_to(const std::string& folder) {
  std::error_code fault;
  std::filesystem::current_path(folder, fault);
  if (fault) throw error(folder, fault.message() + " (--folder names another one)");
}

int run(const score_options& o) {
  answering answers(thread_count(o.threads));
  std::string line;
  for (int64_t number = 1; std::getline(std::cin, line); ++number) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    job_lines job;
    question q;
    try {
      const line_kind kind = parse_line(line, job, q);
      if (kind == line_kind::end) break;
      if (kind == line_kind::job) {
        go_to(o.folder.empty() ? job.folder : o.folder);
        answers.begin(job);
      }
      if (kind == line_kind::question) answers.take(q);
    } catch (const no_threads&) {
      throw;
    } catch (const error& fault) {
      answers.end();
      throw error("standard input: line " + std::to_string(number), fault.what());
    }
  }
  answers.end();
  finish_standard_output();
  return kExitOk;
}

}  // namespace

void add_score(CLI::App& program, job& chosen) {
  const auto o = std::make_shared<score_options>();
  CLI::App* const command =
      program.add_subcommand("score", "Answer the questions of tune --ask-tell");
  with_default(
      add_whole(*command, "--threads", o->threads, 0, 256, "Trials at a time; 0: one per core"),
      o->threads);
  add_file(*command, "--folder", o->folder,
           "Where the names of the pictures begin here; without it, where tune was started")
      ->type_name("FOLDER");
  command->footer(
      "Reads the lines of vorn-ycnr tune --ask-tell on standard input and writes a\n"
      "score for each question to standard output, in the order they are ready.\n"
      "Pictures are read when they are first asked for and kept until another gain is\n"
      "asked for. The lines are in docs/farm.md.\n"
      "Example:\n"
      "  mkfifo scores && vorn-ycnr demo -o demo &&\n"
      "    vorn-ycnr tune demo/clean.png --gains 8 --rounds 1 --ask-tell -o set.json \\\n"
      "    <scores | vorn-ycnr score >scores");
  command->callback([o, &chosen] { chosen = [o] { return run(*o); }; });
}

}  // namespace vorn::tool
