#include "qvx/socket_file_server.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "netfile/netfile_fixture.h"
#include "support/debug_lines.h"

namespace qvx::test {
namespace {

class FileServer : public testing::Test {
 protected:
  TempFolder folder_;
  LoopbackServer server_;
  RawPeer peer_ = RawPeer::To(server_.GetServerPort());
  std::uint32_t serial_ = 100;

  std::u16string Path(const std::string& name) { return Library(folder_.Path(name)); }

  // Sends a request and checks the header of its answer; gives the answer's body.
  Bytes Ask(std::uint32_t command, const Bytes& body) { return AskAs(peer_, command, body); }
  Bytes AskAs(const RawPeer& peer, std::uint32_t command, const Bytes& body) {
    std::uint64_t cookie = 0x1122334455667788;
    peer.Send(PacketBytes(Record(++serial_, command, cookie, body)));
    Bytes answer = Receive(peer).value_or(Bytes());
    EXPECT_EQ(answer.substr(0, 20), Record(serial_, command + 1, cookie, {})) << command;
    return answer.size() >= 20 ? answer.substr(20) : Bytes();
  }
  std::uint64_t Open(const std::string& name, const std::u16string& mode) {
    Bytes answer = Ask(3, Field(Path(name)) + Field(mode, 16));
    EXPECT_EQ(answer.size(), 8u);
    return ValueAt<std::uint64_t>(answer, 0);
  }
  Bytes Read(std::uint64_t handle, std::uint64_t offset, std::uint32_t size) {
    return Ask(13, U64(handle) + U64(offset) + U32(size));
  }
  Bytes Write(std::uint64_t handle, std::uint64_t offset, const Bytes& data) {
    return Ask(15, U64(handle) + U64(offset) + U32(static_cast<std::uint32_t>(data.size())) + data);
  }
};

const Bytes kOne = U32(1);
const Bytes kNone = U32(0);

TEST_F(FileServer, AnswersEachFileRequest) {
  folder_.Write("hello", "Hello");
  std::uint64_t handle = Open("hello", u"rb");
  ASSERT_NE(handle, 0u);
  EXPECT_EQ(Ask(11, U64(handle)), U64(5));
  EXPECT_EQ(Read(handle, 0, 100), U32(5) + "Hello");
  EXPECT_EQ(Read(handle, 1, 2), U32(2) + "el");
  EXPECT_EQ(Read(handle, 5, 10), kNone);
  EXPECT_EQ(Read(handle, ~std::uint64_t{0}, 10), kNone);
  EXPECT_EQ(Read(handle, 0, 0), kNone);
  EXPECT_EQ(Write(handle, 0, "x"), kNone);
  EXPECT_EQ(Ask(5, U64(handle)), kOne);
  EXPECT_EQ(Ask(11, U64(handle)), U64(0));
  EXPECT_EQ(Read(handle, 0, 5), kNone);
  EXPECT_EQ(Ask(5, U64(handle)), kOne);

  std::uint64_t written = Open("new", u"wb");
  ASSERT_GT(written, handle);
  EXPECT_EQ(Write(written, 2, "cd"), U32(2));
  EXPECT_EQ(Write(written, 0, "ab"), U32(2));
  EXPECT_EQ(Write(written, 0, ""), kNone);
  EXPECT_EQ(Read(written, 0, 4), kNone);
  EXPECT_EQ(Ask(11, U64(written)), U64(4));
  EXPECT_EQ(Ask(5, U64(written)), kOne);
  EXPECT_EQ(ReadWhole(folder_.Path("new")), "abcd");
  EXPECT_EQ(DescriptorsBelow(folder_.Path()), 0);
}

// Three ways lead to an answer: from memory, from memory as the file may change, as a range.
TEST_F(FileServer, ReadsOfAllSizesGiveTheBytes) {
  std::string content = Pattern(1500000) + Pattern(1500000, 1000);
  folder_.Write("big", content);
  for (const char16_t* mode : {u"rb", u"r+b"}) {
    std::uint64_t handle = Open("big", mode);
    for (std::uint32_t size : {1u, 0x10000u, 0x10001u, 0x80000u, 0x100001u, 3000000u}) {
      for (std::uint64_t offset : {0u, 12345u}) {
        Bytes answer = Read(handle, offset, size);
        Bytes expected = content.substr(offset, size);
        EXPECT_EQ(ValueAt<std::uint32_t>(answer, 0), expected.size());
        EXPECT_TRUE(answer.substr(4) == expected) << size << " at " << offset;
      }
    }
  }
}

TEST_F(FileServer, AnswersEachRequestOnNames) {
  folder_.Write("abc", "abc");
  folder_.Write("taken", "old");
  EXPECT_EQ(Ask(17, Field(Path("abc"))),
            "\x90\x01\x50\x98\x3c\xd2\x4f\xb0\xd6\x96\x3f\x7d\x28\xe1\x7f\x72");
  EXPECT_EQ(Ask(17, Field(Path("missing"))), Bytes(16, '\0'));
  EXPECT_EQ(Ask(21, Field(Path("sub"))), kOne);
  EXPECT_EQ(Ask(9, Field(Path("abc")) + Field(Path("taken"))), kOne);
  EXPECT_EQ(ReadWhole(folder_.Path("taken")), "old");
  EXPECT_EQ(Ask(9, Field(Path("abc")) + Field(Path("sub/moved"))), kOne);
  EXPECT_EQ(ReadWhole(folder_.Path("sub/moved")), "abc");
  folder_.Write("sub/.hidden", "");
  mkdir(folder_.Path("sub/in").c_str(), 0777);
  EXPECT_EQ(Ask(19, Field(Path("sub"))), U32(4) + U32(10) + Field(u"in", 2) + Field(u"moved", 5));
  EXPECT_EQ(Ask(19, Field(Path("missing"))), U64(0));
  EXPECT_EQ(Ask(21, Field(Path("sub"))), kOne);
  EXPECT_EQ(ReadWhole(folder_.Path("sub/moved")), "abc");
  EXPECT_EQ(Ask(7, Field(Path("taken"))), kOne);
  EXPECT_EQ(Ask(7, Field(Path("taken"))), kOne);
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("taken")));
}

TEST_F(FileServer, EmptyingAFolderStaysInsideIt) {
  TempFolder outside;
  outside.Write("kept", "kept");
  std::filesystem::create_directories(folder_.Path("tree/in"));
  folder_.Write("tree/in/.deep", "");
  std::filesystem::create_directory_symlink(outside.Path(), folder_.Path("tree/link"));
  EXPECT_EQ(Ask(23, Field(Path("tree"))), kOne);
  EXPECT_TRUE(std::filesystem::is_empty(folder_.Path("tree")));
  EXPECT_EQ(ReadWhole(outside.Path("kept")), "kept");
}

class NumberedFolders : public IServerFolderPathInterface {
 public:
  void OnGetFolderPath(std::int32_t folder_id, WCHAR* path, std::uint64_t context) override {
    for (std::size_t i = 0; i < 260; ++i) path[i] = static_cast<WCHAR>(u'a' + folder_id);
    if (context == 7) path[3] = 0;
  }
};

TEST_F(FileServer, FolderPathsComeFromTheApplication) {
  CSocketFileServer copy(server_);
  copy = server_;
  EXPECT_EQ(copy.IsCreated(), 0);
  Bytes two = LittleEndian(std::int32_t{2});
  EXPECT_EQ(Ask(1, two), Bytes(520, '\0'));
  NumberedFolders folders;
  server_.SetFolderPathInterface(&folders, 7);
  EXPECT_EQ(Ask(1, two), Field(u"ccc"));
  server_.SetFolderPathInterface(&folders, 8);
  EXPECT_EQ(Ask(1, two), Field(std::u16string(259, u'c')));
  IServerFolderPathInterface none;
  server_.SetFolderPathInterface(&none, 0);
  EXPECT_EQ(Ask(1, two), Bytes(520, '\0'));
  server_.SetFolderPathInterface(nullptr, 0);
}

TEST_F(FileServer, ShortRecordsGetTheFailureAnswer) {
  const struct {
    std::uint32_t command;
    std::size_t size;
    Bytes failure;
  } cases[] = {
      {1, 24, Bytes(520, '\0')},
      {3, 572, Bytes(8, '\0')},
      {5, 28, kOne},
      {7, 540, kOne},
      {9, 1060, kOne},
      {11, 28, Bytes(8, '\0')},
      {13, 40, kNone},
      {15, 40, kNone},
      {17, 540, Bytes(16, '\0')},
      {19, 540, Bytes(8, '\0')},
      {21, 540, kOne},
      {23, 540, kOne},
  };
  for (const auto& it : cases) {
    EXPECT_EQ(Ask(it.command, Bytes(it.size - 21, 'A')), it.failure) << it.command;
    EXPECT_EQ(Ask(it.command, {}), it.failure) << it.command;
  }
  std::uint64_t handle = Open("file", u"wb");
  EXPECT_EQ(Ask(15, U64(handle) + U64(0) + U32(5) + "1234"), kNone);
  EXPECT_EQ(ReadWhole(folder_.Path("file")), "");
}

TEST_F(FileServer, UnknownCommandsAreIgnoredAndAWrongVersionEndsTheConnection) {
  for (std::uint32_t command : {0u, 2u, 4u, 24u, 25u, 0xFFFFFFFFu})
    peer_.Send(PacketBytes(Record(1, command, 0, Bytes(1100, 'A'))));
  Bytes record = Record(1, 5, 0, U64(0));
  for (std::size_t size = 1; size < 20; ++size) peer_.Send(PacketBytes(record.substr(0, size)));
  EXPECT_EQ(Ask(11, U64(0)), U64(0));
  DebugLines log;
  record[0] = 4;
  peer_.Send(PacketBytes(record));
  EXPECT_TRUE(peer_.SeesEnd());
  EXPECT_EQ(log.Count(2, "CSocketFileServer::OnServerReceiveData: Net File Version NOT MATCH\r\n"),
            1);
}

TEST_F(FileServer, HandlesBelongToTheirClient) {
  folder_.Write("secret", "secret");
  std::uint64_t handle = Open("secret", u"r+b");
  RawPeer other = RawPeer::To(server_.GetServerPort());
  Bytes at_start = U64(handle) + U64(0);
  EXPECT_EQ(AskAs(other, 11, U64(handle)), U64(0));
  EXPECT_EQ(AskAs(other, 13, at_start + U32(6)), kNone);
  EXPECT_EQ(AskAs(other, 15, at_start + U32(1) + "X"), kNone);
  EXPECT_EQ(AskAs(other, 5, U64(handle)), kOne);
  for (std::uint64_t guess : {handle + 1, handle - 1, ~handle, std::uint64_t{0}})
    EXPECT_EQ(Read(guess, 0, 6), kNone);
  EXPECT_EQ(Read(handle, 0, SOCKET_FILE_MAX_READ + 1), kNone);
  EXPECT_EQ(Read(handle, 0, 0xFFFFFFFF), kNone);
  EXPECT_EQ(Read(handle, 0, SOCKET_FILE_MAX_READ), U32(6) + "secret");
}

TEST_F(FileServer, OpensOnlyRegularFilesAndWaitsForNobody) {
  DebugLines log;
  mkdir(folder_.Path("folder").c_str(), 0777);
  mkfifo(folder_.Path("fifo").c_str(), 0666);
  std::filesystem::create_symlink("/dev/zero", folder_.Path("device"));
  for (const char16_t* mode : {u"rb", u"wb", u"r+b"})
    for (const char* name : {"folder", "fifo", "device", ""})
      EXPECT_EQ(Open(name, mode), 0u) << name;
  EXPECT_EQ(Open("missing", u"rb"), 0u);
  folder_.Write("file", "");
  EXPECT_EQ(Open("file", u"nonsense"), 0u);
  EXPECT_EQ(Open("file", std::u16string(16, u'r')), 0u);
  EXPECT_EQ(
      ValueAt<std::uint64_t>(Ask(3, Field(std::u16string(260, u'x'), 260) + Field(u"rb", 16)), 0),
      0u);
  EXPECT_EQ(DescriptorsBelow(folder_.Path()), 0);
  std::u16string path = Path("");
  std::string told = "openfile " + std::string(path.begin(), path.end());
  EXPECT_EQ(log.Count(2, told + "fifo failed:22\r\n"), 3);
  EXPECT_EQ(log.Count(2, told + "missing failed:2\r\n"), 1);
}

TEST_F(FileServer, AVanishedClientLeavesNoOpenFile) {
  folder_.Write("a", std::string(1 << 20, 'a'));
  RawPeer other = RawPeer::To(server_.GetServerPort());
  for (int i = 0; i < 3; ++i) {
    Open("a", u"rb");
    AskAs(other, 3, Field(Path("a")) + Field(u"rb", 16));
  }
  EXPECT_EQ(DescriptorsBelow(folder_.Path()), 6);
  std::uint64_t handle = Open("a", u"rb");
  Bytes whole = U64(handle) + U64(0) + U32(1 << 20);
  // Answers that nobody fetches hold the file as well, until the connection is gone.
  for (std::uint32_t i = 0; i < 64; ++i) peer_.Send(PacketBytes(Record(i, 13, 0, whole)));
  peer_.Reset();
  EXPECT_TRUE(WaitForDescriptorsBelow(folder_.Path(), 3));
  server_.Close();
  EXPECT_EQ(DescriptorsBelow(folder_.Path()), 0);
}

}  // namespace
}  // namespace qvx::test
