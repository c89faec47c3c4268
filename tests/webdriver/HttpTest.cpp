// The HTTP layer over real sockets: what a client gets for requests that
// HTTP itself refuses or that this library version would mishandle.
#include <winsock2.h>
#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <thread>

#include "FakeAgent.h"
#include "webdriver/Driver.h"
#include "webdriver/HttpServer.h"

namespace kwdriver {
namespace {

using nlohmann::json;

struct Response {
  int status = 0;  // 0: the connection closed without one
  json body;
  std::string Error() const { return body.is_object() ? body["value"].value("error", "") : ""; }
};

// A client that writes raw bytes and reads responses one by one.
class RawClient {
 public:
  explicit RawClient(int port) {
    m_socket = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    DWORD timeout = 10000;
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeout), sizeof timeout);
    m_connected = connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawClient() { closesocket(m_socket); }
  bool Connected() const { return m_connected; }
  void Send(const std::string& bytes) { send(m_socket, bytes.data(), static_cast<int>(bytes.size()), 0); }

  Response Read() {
    Response response;
    size_t end;
    while ((end = m_buffer.find("\r\n\r\n")) == std::string::npos)
      if (!Fill()) return response;
    const std::string head = m_buffer.substr(0, end);
    size_t length = 0;
    const size_t at = head.find("Content-Length: ");
    if (at != std::string::npos) length = std::stoul(head.substr(at + 16));
    while (m_buffer.size() < end + 4 + length)
      if (!Fill()) return response;
    response.status = std::stoi(head.substr(9, 3));
    response.body = json::parse(m_buffer.substr(end + 4, length), nullptr, false);
    m_buffer.erase(0, end + 4 + length);
    return response;
  }

 private:
  bool Fill() {
    char chunk[4096];
    const int got = recv(m_socket, chunk, sizeof chunk, 0);
    if (got <= 0) return false;
    m_buffer.append(chunk, static_cast<size_t>(got));
    return true;
  }
  SOCKET m_socket;
  bool m_connected = false;
  std::string m_buffer;
};

class HttpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto shared = std::make_shared<testing::FakeStarter::Shared>();
    driver = std::make_unique<Driver>(std::make_unique<testing::FakeStarter>(shared), DriverOptions{});
    http = std::make_unique<HttpServer>(driver.get(), 4096);
    ASSERT_TRUE(http->Bind("127.0.0.1", 0, &port));
    serving = std::thread([this] { http->Run(); });
  }
  void TearDown() override {
    http->Stop();
    serving.join();
  }
  Response Exchange(const std::string& request) {
    RawClient client(port);
    EXPECT_TRUE(client.Connected());
    client.Send(request);
    return client.Read();
  }

  std::unique_ptr<Driver> driver;
  std::unique_ptr<HttpServer> http;
  std::thread serving;
  int port = 0;
};

TEST_F(HttpTest, RequestsHttpRefusesGetWebDriverErrors) {
  struct Case {
    std::string request;
    int status;  // 0: a closed connection is as good an answer
    const char* error;
  };
  const Case table[] = {
      {"GET /status HTTP/1.1\r\nHost: x\r\n\r\n", 200, ""},
      {"GET /status?probe=1 HTTP/1.1\r\n\r\n", 200, ""},
      {"POST /session HTTP/1.1\r\nContent-Length: 5000\r\n\r\n" + std::string(5000, ' '), 413, "invalid argument"},
      {"POST /session HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n", 413, "invalid argument"},
      {"PUT /status HTTP/1.1\r\nContent-Length: 0\r\n\r\n", 405, "unknown method"},
      {"PATCH /nowhere HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", 404, "unknown command"},
      {"GET /" + std::string(9000, 'a') + " HTTP/1.1\r\n\r\n", 414, "invalid argument"},
      {"NONSENSE\r\n\r\n", 400, "invalid argument"},
      {"POST /session HTTP/1.1\r\nContent-Length: 4\r\n\r\n[1]]", 400, "invalid argument"},
      {"POST /session HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", 400, "invalid argument"},
  };
  for (const Case& c : table) {
    const Response response = Exchange(c.request);
    EXPECT_EQ(response.status, c.status) << c.request.substr(0, 60);
    EXPECT_EQ(response.Error(), c.error) << c.request.substr(0, 60);
  }
}

TEST_F(HttpTest, ABodilessDeleteIsAnsweredAtOnceAndConnectionsStayOpen) {
  RawClient client(port);
  ASSERT_TRUE(client.Connected());
  const auto start = std::chrono::steady_clock::now();
  // Python's http.client sends DELETE without Content-Length.
  client.Send("DELETE /session/none HTTP/1.1\r\nHost: x\r\n\r\n");
  Response response = client.Read();
  EXPECT_EQ(response.status, 404);
  EXPECT_EQ(response.Error(), "invalid session id");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2000));
  for (int i = 0; i < 3; ++i) {
    client.Send("GET /status HTTP/1.1\r\nHost: x\r\n\r\n");
    response = client.Read();
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body["value"]["ready"], true);
  }
}

}  // namespace
}  // namespace kwdriver
