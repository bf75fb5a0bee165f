// The driver catalogue of builds without registry and COM: a process-wide
// list of driver keys and a table of class factories, under one lock.
#include "platform/Asiodrivers.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <mutex>
#include <utility>

namespace Quorvel::Asiodrivers {
namespace {

struct TDriverKey {
  std::string Name;
  bool HasClsid;
  std::string ClsidText;
};

struct TClassEntry {
  TGUID Clsid;
  std::function<void*(const TGUID&)> Factory;
};

struct TCatalogue {
  std::mutex Lock;
  bool RootPresent = true;
  std::vector<TDriverKey> Keys;  // insertion order is enumeration order
  std::vector<TClassEntry> Classes;
};

TCatalogue& Catalogue() {
  static TCatalogue Instance;
  return Instance;
}

bool SameGuid(const TGUID& A, const TGUID& B) { return std::memcmp(&A, &B, sizeof(TGUID)) == 0; }

// The registry compares key names without regard to (ASCII) case.
bool SameKeyName(const std::string& A, const std::string& B) {
  return A.size() == B.size() && std::equal(A.begin(), A.end(), B.begin(), [](char X, char Y) {
           return std::tolower(static_cast<unsigned char>(X)) == std::tolower(static_cast<unsigned char>(Y));
         });
}

std::vector<TDriverKey>::iterator FindKey(TCatalogue& C, const std::string& Name) {
  return std::find_if(C.Keys.begin(), C.Keys.end(), [&](const TDriverKey& K) { return SameKeyName(K.Name, Name); });
}

int HexDigit(char C) {
  if (C >= '0' && C <= '9') return C - '0';
  if (C >= 'a' && C <= 'f') return C - 'a' + 10;
  if (C >= 'A' && C <= 'F') return C - 'A' + 10;
  return -1;
}

// Reads Digits hexadecimal digits at Text[Pos].
bool ReadHex(const std::string& Text, size_t Pos, size_t Digits, uint64_t& Value) {
  Value = 0;
  for (size_t I = 0; I < Digits; ++I) {
    const int D = HexDigit(Text[Pos + I]);
    if (D < 0) return false;
    Value = (Value << 4) | static_cast<uint64_t>(D);
  }
  return true;
}

}  // namespace

bool EnumerateDriverKeys(std::vector<std::string>& Names) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  if (!C.RootPresent) return false;
  for (const TDriverKey& K : C.Keys) Names.push_back(K.Name);
  return true;
}

bool DriverKeyExists(const std::string& Name) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  return C.RootPresent && FindKey(C, Name) != C.Keys.end();
}

bool ReadDriverClsid(const std::string& Name, std::string& ClsidText) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  if (!C.RootPresent) return false;
  auto It = FindKey(C, Name);
  if (It == C.Keys.end() || !It->HasClsid) return false;
  ClsidText = It->ClsidText;
  return true;
}

bool ClsidFromText(const std::string& Text, TGUID& Clsid) {
  Clsid = TGUID{};
  // {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}
  if (Text.size() != 38 || Text[0] != '{' || Text[37] != '}' || Text[9] != '-' || Text[14] != '-' ||
      Text[19] != '-' || Text[24] != '-')
    return false;
  uint64_t D1, D2, D3, D4a, D4b;
  if (!ReadHex(Text, 1, 8, D1) || !ReadHex(Text, 10, 4, D2) || !ReadHex(Text, 15, 4, D3) ||
      !ReadHex(Text, 20, 4, D4a) || !ReadHex(Text, 25, 12, D4b))
    return false;
  TGUID G;
  G.D1 = static_cast<uint32_t>(D1);
  G.D2 = static_cast<uint16_t>(D2);
  G.D3 = static_cast<uint16_t>(D3);
  G.D4[0] = static_cast<uint8_t>(D4a >> 8);
  G.D4[1] = static_cast<uint8_t>(D4a);
  for (int I = 0; I < 6; ++I) G.D4[2 + I] = static_cast<uint8_t>(D4b >> (8 * (5 - I)));
  Clsid = G;
  return true;
}

void* CreateInprocInstance(const TGUID& Clsid, const TGUID& Iid) {
  std::function<void*(const TGUID&)> Factory;
  {
    TCatalogue& C = Catalogue();
    std::lock_guard<std::mutex> G(C.Lock);
    auto It = std::find_if(C.Classes.begin(), C.Classes.end(),
                           [&](const TClassEntry& E) { return SameGuid(E.Clsid, Clsid); });
    if (It == C.Classes.end()) return nullptr;
    Factory = It->Factory;
  }
  // The factory runs outside the lock: a driver's constructor may well look
  // at the catalogue itself.
  try {
    return Factory ? Factory(Iid) : nullptr;
  } catch (...) {
    return nullptr;  // COM activation answers an error code, never an exception
  }
}

bool InitializeComForThisThread() { return true; }

void CatalogueSetRootPresent(bool Present) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  C.RootPresent = Present;
}

void CatalogueAddKey(const std::string& Name, const std::string* ClsidText) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  auto It = FindKey(C, Name);
  if (It == C.Keys.end()) It = C.Keys.insert(C.Keys.end(), TDriverKey{Name, false, {}});
  It->HasClsid = ClsidText != nullptr;
  It->ClsidText = ClsidText ? *ClsidText : std::string();
}

void CatalogueRemoveKey(const std::string& Name) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  auto It = FindKey(C, Name);
  if (It != C.Keys.end()) C.Keys.erase(It);
}

void CatalogueRegisterClass(const TGUID& Clsid, std::function<void*(const TGUID& Iid)> Factory) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  auto It = std::find_if(C.Classes.begin(), C.Classes.end(),
                         [&](const TClassEntry& E) { return SameGuid(E.Clsid, Clsid); });
  if (It != C.Classes.end())
    It->Factory = std::move(Factory);
  else
    C.Classes.push_back(TClassEntry{Clsid, std::move(Factory)});
}

void CatalogueUnregisterClass(const TGUID& Clsid) {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  C.Classes.erase(std::remove_if(C.Classes.begin(), C.Classes.end(),
                                 [&](const TClassEntry& E) { return SameGuid(E.Clsid, Clsid); }),
                  C.Classes.end());
}

void CatalogueClear() {
  TCatalogue& C = Catalogue();
  std::lock_guard<std::mutex> G(C.Lock);
  C.RootPresent = true;
  C.Keys.clear();
  C.Classes.clear();
}

}  // namespace Quorvel::Asiodrivers
