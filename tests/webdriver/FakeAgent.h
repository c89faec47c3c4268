// A stand-in for an application with the agent in it: answers commands from
// a function the test gives, records what it was asked, and can hang, crash
// or end like a real one.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "webdriver/Agent.h"

namespace kwdriver::testing {

struct FakeApp {
  // The answer to a command; a Reply of kind kTimeout makes the fake hang
  // until the caller's limit or cancellation.
  std::function<Reply(const std::string& name, const nlohmann::json& params)> answer =
      [](const std::string&, const nlohmann::json&) { return Reply{}; };
  std::atomic<bool> alive{true};
  std::string lastWords;
  std::atomic<int> ended{0};
  bool launched = true;
  unsigned long pid = 4242;

  std::mutex lock;
  std::vector<std::pair<std::string, nlohmann::json>> calls;

  std::vector<std::string> CallNames() {
    std::lock_guard<std::mutex> hold(lock);
    std::vector<std::string> names;
    for (const auto& call : calls) names.push_back(call.first);
    return names;
  }
  nlohmann::json LastParams() {
    std::lock_guard<std::mutex> hold(lock);
    return calls.empty() ? nlohmann::json() : calls.back().second;
  }
};

class FakeAgent : public AgentChannel {
 public:
  explicit FakeAgent(std::shared_ptr<FakeApp> app) : m_app(std::move(app)) {}
  Reply Call(const std::string& name, const nlohmann::json& params, std::chrono::milliseconds limit,
             const std::atomic<bool>& cancelled) override {
    {
      std::lock_guard<std::mutex> hold(m_app->lock);
      m_app->calls.emplace_back(name, params);
    }
    Reply reply = m_app->answer(name, params);
    if (reply.kind != Reply::Kind::kTimeout) return reply;
    const auto until = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < until) {
      if (cancelled) return Reply{Reply::Kind::kGone, nullptr, {"", "the session was ended"}};
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return reply;
  }
  bool Alive(std::string* report) override {
    if (!m_app->alive) *report = m_app->lastWords;
    return m_app->alive;
  }
  void End() override { ++m_app->ended; }
  unsigned long Pid() const override { return m_app->pid; }
  bool Launched() const override { return m_app->launched; }

 private:
  std::shared_ptr<FakeApp> m_app;
};

// Makes a FakeApp per session; "missing.exe" fails as the launcher would.
class FakeStarter : public AgentStarter {
 public:
  struct Shared {
    std::mutex lock;
    std::vector<std::shared_ptr<FakeApp>> apps;
    std::vector<SessionRequest> requests;
    std::function<void(FakeApp&)> prepare = [](FakeApp&) {};
  };
  explicit FakeStarter(std::shared_ptr<Shared> shared) : m_shared(std::move(shared)) {}
  std::unique_ptr<AgentChannel> Start(const SessionRequest& request, Failure* failure) override {
    if (request.app.find("missing.exe") != std::string::npos) {
      *failure = {"session not created", "kwscript: no program " + request.app};
      return nullptr;
    }
    auto app = std::make_shared<FakeApp>();
    app->launched = !request.app.empty();
    std::lock_guard<std::mutex> hold(m_shared->lock);
    m_shared->prepare(*app);
    m_shared->apps.push_back(app);
    m_shared->requests.push_back(request);
    return std::make_unique<FakeAgent>(app);
  }

 private:
  std::shared_ptr<Shared> m_shared;
};

}  // namespace kwdriver::testing
