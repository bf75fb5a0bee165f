// Memory and file streams behave alike: positions, sizes, gaps, truncation,
// big-endian words and copying; hostile sizes and positions are refused
// without allocating; files report why they did not open.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <random>

#include "tests/support/Scratchfolder.h"
#include "frame/Wbstreams.h"

using namespace Quorvel;
namespace fs = std::filesystem;

namespace {

class Streams : public Testing::ScratchFolderTest {};

std::vector<uint8_t> Bytes(std::initializer_list<int> L) {
  std::vector<uint8_t> V;
  for (int B : L) V.push_back(uint8_t(B));
  return V;
}

// The same steps on any stream that starts empty.
void Exercise(TWBStream& S) {
  const auto Abc = Bytes({'a', 'b', 'c', 'd', 'e'});
  EXPECT_EQ(S.Write(Abc.data(), 5), 5);
  EXPECT_EQ(S.GetPosition(), 5);
  EXPECT_EQ(S.GetSize(), 5);
  EXPECT_EQ(S.Seek(1, TWBSeekOrigin::soBeginning), 1);
  uint8_t Got[8] = {};
  EXPECT_EQ(S.Read(Got, 8), 4) << "a read stops at the end";
  EXPECT_EQ(std::string(reinterpret_cast<char*>(Got), 4), "bcde");
  EXPECT_EQ(S.Read(Got, 8), 0);
  EXPECT_EQ(S.Remaining(), 0);

  // A write beyond the end leaves zeros in the gap.
  EXPECT_EQ(S.Seek(3, TWBSeekOrigin::soEnd), 8);
  EXPECT_TRUE(S.WriteBigEndian32(0x01020304u));
  EXPECT_EQ(S.GetSize(), 12);
  EXPECT_EQ(S.Seek(-7, TWBSeekOrigin::soCurrent), 5);
  uint8_t Gap[3] = {9, 9, 9};
  EXPECT_TRUE(S.ReadExact(Gap, 3));
  EXPECT_EQ(Bytes({Gap[0], Gap[1], Gap[2]}), Bytes({0, 0, 0}));
  uint32_t Word = 0;
  EXPECT_TRUE(S.ReadBigEndian32(Word));
  EXPECT_EQ(Word, 0x01020304u);
  EXPECT_FALSE(S.ReadBigEndian32(Word)) << "nothing left";

  // Cutting keeps the position; extending adds zeros.
  EXPECT_EQ(S.Seek(2, TWBSeekOrigin::soBeginning), 2);
  EXPECT_TRUE(S.SetSize(3));
  EXPECT_EQ(S.GetSize(), 3);
  EXPECT_EQ(S.GetPosition(), 2);
  EXPECT_TRUE(S.SetSize(6));
  EXPECT_EQ(S.Seek(0, TWBSeekOrigin::soBeginning), 0);
  EXPECT_TRUE(S.ReadExact(Got, 6));
  EXPECT_EQ(std::vector<uint8_t>(Got, Got + 6), Bytes({'a', 'b', 'c', 0, 0, 0}));

  // What is never allowed.
  EXPECT_EQ(S.Seek(-1, TWBSeekOrigin::soBeginning), -1);
  EXPECT_EQ(S.GetPosition(), 6) << "a refused seek leaves the position";
  EXPECT_EQ(S.Read(Got, -1), -1);
  EXPECT_EQ(S.Write(Got, -5), -1);
  EXPECT_FALSE(S.SetSize(-1));
  EXPECT_FALSE(S.ReadExact(Got, 1));

  // Copying takes the rest of another stream.
  TWBMemoryStream Tail(Abc.data(), Abc.size());
  Tail.Seek(3, TWBSeekOrigin::soBeginning);
  EXPECT_EQ(S.CopyFrom(Tail), 2);
  EXPECT_EQ(S.GetSize(), 8);
}

}  // namespace

TEST_F(Streams, MemoryAndFileStreamsBehaveAlike) {
  {
    SCOPED_TRACE("memory");
    TWBMemoryStream M;
    Exercise(M);
    EXPECT_EQ(M.GetData(), Bytes({'a', 'b', 'c', 0, 0, 0, 'd', 'e'}));
  }
  {
    SCOPED_TRACE("file");
    TWBFileStream F(PathOf("fl\xC3\xBC\xC3\x9F.bin"), Platform::TFileOpenMode::fomCreate);
    ASSERT_TRUE(F.IsOpen()) << F.GetOpenError();
    Exercise(F);
  }
  // The file holds what was written, and opens again for reading.
  TWBFileStream Again(PathOf("fl\xC3\xBC\xC3\x9F.bin"), Platform::TFileOpenMode::fomRead);
  ASSERT_TRUE(Again.IsOpen()) << Again.GetOpenError();
  uint8_t All[8];
  EXPECT_TRUE(Again.ReadExact(All, 8));
  EXPECT_EQ(std::vector<uint8_t>(All, All + 8), Bytes({'a', 'b', 'c', 0, 0, 0, 'd', 'e'}));
  EXPECT_EQ(Again.Write(All, 1), -1) << "opened for reading only";
  EXPECT_FALSE(Again.GetLastErrorText().empty());
}

TEST_F(Streams, LimitsAndFailuresAreReportedNotObeyed) {
  // A memory stream never grows past its limit, whatever a length claims.
  TWBMemoryStream Small(16);
  uint8_t Data[32] = {};
  EXPECT_EQ(Small.Write(Data, 16), 16);
  EXPECT_EQ(Small.Write(Data, 1), -1);
  EXPECT_FALSE(Small.GetLastErrorText().empty());
  EXPECT_FALSE(Small.SetSize(int64_t(1) << 40));
  EXPECT_EQ(Small.Seek(INT64_MAX, TWBSeekOrigin::soBeginning), INT64_MAX);
  EXPECT_EQ(Small.Write(Data, 1), -1) << "no write lands past the limit";
  EXPECT_EQ(Small.Seek(1, TWBSeekOrigin::soCurrent), -1) << "the position cannot overflow";
  EXPECT_EQ(Small.GetSize(), 16);

  for (auto Mode : {Platform::TFileOpenMode::fomRead, Platform::TFileOpenMode::fomReadWrite}) {
    TWBFileStream Missing(PathOf("missing.bin"), Mode);
    EXPECT_FALSE(Missing.IsOpen());
    EXPECT_FALSE(Missing.GetOpenError().empty());
    EXPECT_EQ(Missing.Read(Data, 1), -1);
    EXPECT_EQ(Missing.GetSize(), -1);
  }
  TWBFileStream Folder(Dir.u8string(), Platform::TFileOpenMode::fomRead);
  EXPECT_FALSE(Folder.IsOpen());
  // Writers are kept out while a stream that denies them is open; readers
  // that share writing are not, and a refused create empties nothing.
  {
    TWBFileStream Owner(PathOf("owned.bin"), Platform::TFileOpenMode::fomCreate, Platform::TFileShareMode::fsmDenyWrite);
    ASSERT_TRUE(Owner.IsOpen());
    ASSERT_TRUE(Owner.WriteExact(Data, 4));
    TWBFileStream Writer(PathOf("owned.bin"), Platform::TFileOpenMode::fomReadWrite,
                         Platform::TFileShareMode::fsmShareAll);
    EXPECT_FALSE(Writer.IsOpen());
    TWBFileStream Creator(PathOf("owned.bin"), Platform::TFileOpenMode::fomCreate,
                          Platform::TFileShareMode::fsmShareAll);
    EXPECT_FALSE(Creator.IsOpen());
    TWBFileStream Reader(PathOf("owned.bin"), Platform::TFileOpenMode::fomRead, Platform::TFileShareMode::fsmShareAll);
    ASSERT_TRUE(Reader.IsOpen());
    EXPECT_EQ(Reader.GetSize(), 4);
    // A stream that denies writers cannot open while one writes.
    TWBFileStream Second(PathOf("owned.bin"), Platform::TFileOpenMode::fomRead, Platform::TFileShareMode::fsmDenyWrite);
    EXPECT_FALSE(Second.IsOpen());
  }
  TWBFileStream After(PathOf("owned.bin"), Platform::TFileOpenMode::fomReadWrite);
  EXPECT_TRUE(After.IsOpen()) << "closing the owner lets writers in again";
}
