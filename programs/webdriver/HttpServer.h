// kwdriver's HTTP face (cpp-httplib): every request, well formed or not,
// gets a WebDriver answer, and one line in the log with its duration.
#pragma once

#include <memory>
#include <string>

namespace httplib {
class Server;
}

namespace kwdriver {

class Driver;

constexpr size_t kDefaultBodyLimit = 64u * 1024 * 1024;

class HttpServer {
 public:
  HttpServer(Driver* driver, size_t bodyLimit = kDefaultBodyLimit);
  ~HttpServer();

  // Port 0 takes a free one; `bound` receives the port listened on.
  bool Bind(const std::string& host, int port, int* bound);
  // Serves until Stop().
  void Run();
  void Stop();

 private:
  Driver* m_driver;
  std::unique_ptr<httplib::Server> m_server;
};

}  // namespace kwdriver
