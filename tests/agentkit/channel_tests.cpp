// The session's command channel between two ends in one process, as the
// loader and the agent hold it: turns taken in order, messages of any size
// arriving whole, nothing taken out of turn or twice, and a damaged size
// read as an empty (unreadable) message rather than past the section.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "agentkit/CommandChannel.h"

namespace {

using kwagentkit::CommandChannel;

std::wstring UniquePipeName() {
  static int count = 0;
  return L"\\\\.\\pipe\\kwagent-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

struct Ends {
  CommandChannel loader, agent;
  Ends() {
    const std::wstring name = UniquePipeName();
    EXPECT_TRUE(loader.Create(name));
    EXPECT_TRUE(agent.Open(name));
  }
};

std::string Filled(int size, char seed) {
  std::string bytes(static_cast<size_t>(size), '\0');
  for (int i = 0; i < size; ++i) bytes[static_cast<size_t>(i)] = static_cast<char>(seed + i * 7);
  return bytes;
}

TEST(Channel, OpensOnlyWhatTheLoaderMade) {
  CommandChannel agent;
  EXPECT_FALSE(agent.Open(UniquePipeName()));
}

TEST(Channel, MessagesOfEverySizeCrossWholeBothWays) {
  const int limit = static_cast<int>(CommandChannel::InlineLimit());
  Ends ends;
  for (int size : {0, 1, 300, limit, limit + 1, 5 * limit}) {
    SCOPED_TRACE(size);
    const std::string command = Filled(size, 'c'), answer = Filled(size, 'a');
    ASSERT_TRUE(ends.loader.LoaderTurn());
    ASSERT_TRUE(ends.loader.PutCommand(command));
    EXPECT_FALSE(ends.loader.LoaderTurn());
    std::string taken;
    ASSERT_TRUE(ends.agent.TakeCommand(&taken));
    EXPECT_EQ(taken, command);
    ASSERT_EQ(WaitForSingleObject(ends.loader.Answered(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    ASSERT_TRUE(ends.agent.PutAnswer(answer));
    EXPECT_EQ(WaitForSingleObject(ends.loader.Answered(), 0), static_cast<DWORD>(WAIT_OBJECT_0));
    ASSERT_TRUE(ends.loader.TakeAnswer(&taken));
    EXPECT_EQ(taken, answer);
  }
}

TEST(Channel, NothingIsPutOrTakenOutOfTurnOrTwice) {
  Ends ends;
  std::string taken;
  EXPECT_FALSE(ends.agent.TakeCommand(&taken));  // no command yet
  EXPECT_FALSE(ends.agent.PutAnswer("early"));   // not the agent's turn
  EXPECT_FALSE(ends.loader.TakeAnswer(&taken));  // no answer yet
  ASSERT_TRUE(ends.loader.PutCommand("one"));
  EXPECT_FALSE(ends.loader.PutCommand("two"));   // the first is still the agent's
  EXPECT_FALSE(ends.loader.TakeAnswer(&taken));
  ASSERT_TRUE(ends.agent.TakeCommand(&taken));
  EXPECT_EQ(taken, "one");
  EXPECT_FALSE(ends.agent.TakeCommand(&taken));  // a stray wake-up finds nothing
  ASSERT_TRUE(ends.agent.PutAnswer("answer"));
  EXPECT_FALSE(ends.agent.PutAnswer("again"));
  ASSERT_TRUE(ends.loader.TakeAnswer(&taken));
  EXPECT_FALSE(ends.loader.TakeAnswer(&taken));
}

TEST(Channel, ADamagedSizeReadsAsAnEmptyMessage) {
  const std::wstring name = UniquePipeName();
  CommandChannel loader, agent;
  ASSERT_TRUE(loader.Create(name));
  ASSERT_TRUE(agent.Open(name));
  ASSERT_TRUE(loader.PutCommand("{}"));
  // The section as another process sees it: the size word follows the turn
  // and the "full" mark.
  HANDLE section = OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE,
                                    (L"Local\\" + name.substr(name.find_last_of(L'\\') + 1) + L"-channel").c_str());
  ASSERT_NE(section, nullptr);
  auto* words = static_cast<volatile DWORD*>(MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
  ASSERT_NE(words, nullptr);
  words[2] = 0xfffffff0u;
  std::string taken("left over");
  EXPECT_TRUE(agent.TakeCommand(&taken));
  EXPECT_TRUE(taken.empty());
  UnmapViewOfFile(const_cast<DWORD*>(words));
  CloseHandle(section);
}

}  // namespace
