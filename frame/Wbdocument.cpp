#include "frame/Wbdocument.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <map>

#include "frame/Wbcomponent.h"
#include "frame/Wbregistration.h"

namespace Quorvel {
namespace {

using TJson = nlohmann::ordered_json;

// Documents nest groups and collections a few levels deep; anything deeper
// is not a document of ours (and would only cost stack).
constexpr int kMaxDepth = 64;

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string ToBase64(const std::vector<uint8_t>& Bytes) {
  std::string Out;
  for (size_t I = 0; I < Bytes.size(); I += 3) {
    const uint32_t N = uint32_t(Bytes[I]) << 16 | (I + 1 < Bytes.size() ? uint32_t(Bytes[I + 1]) << 8 : 0) |
                       (I + 2 < Bytes.size() ? Bytes[I + 2] : 0);
    Out += kBase64[N >> 18 & 63];
    Out += kBase64[N >> 12 & 63];
    Out += I + 1 < Bytes.size() ? kBase64[N >> 6 & 63] : '=';
    Out += I + 2 < Bytes.size() ? kBase64[N & 63] : '=';
  }
  return Out;
}

bool FromBase64(const std::string& Text, std::vector<uint8_t>& Bytes) {
  if (Text.size() % 4 != 0) return false;
  Bytes.clear();
  for (size_t I = 0; I < Text.size(); I += 4) {
    uint32_t N = 0;
    int Pad = 0;
    for (size_t J = 0; J < 4; ++J) {
      const char C = Text[I + J];
      const char* At = C ? std::strchr(kBase64, C) : nullptr;
      if (C == '=' && I + 4 == Text.size() && J >= 2) {
        ++Pad;
        N <<= 6;
        continue;
      }
      if (!At || Pad) return false;
      N = N << 6 | uint32_t(At - kBase64);
    }
    Bytes.push_back(uint8_t(N >> 16));
    if (Pad < 2) Bytes.push_back(uint8_t(N >> 8));
    if (Pad < 1) Bytes.push_back(uint8_t(N));
  }
  return true;
}

TJson ToJson(const TWBValue& V) {
  switch (V.Kind()) {
    case TWBValue::TKind::vkNull: return nullptr;
    case TWBValue::TKind::vkBoolean: {
      bool B = false;
      V.AsBoolean(B);
      return B;
    }
    case TWBValue::TKind::vkInteger: {
      int64_t I = 0;
      V.AsInteger(I);
      return I;
    }
    case TWBValue::TKind::vkFloat: {
      double D = 0;
      V.AsFloat(D);
      // JSON has no NaN or infinity: such a value is written as null.
      return std::isfinite(D) ? TJson(D) : TJson(nullptr);
    }
    case TWBValue::TKind::vkString: {
      std::string S;
      V.AsString(S);
      return S;
    }
    case TWBValue::TKind::vkBinary: {
      std::vector<uint8_t> B;
      V.AsBinary(B);
      return TJson{{"$binary", ToBase64(B)}};
    }
    case TWBValue::TKind::vkList: {
      TJson A = TJson::array();
      for (const auto& Item : V.Items()) A.push_back(ToJson(Item));
      return A;
    }
    case TWBValue::TKind::vkObject: {
      TJson O = TJson::object();
      for (const auto& [Name, Member] : V.Members()) O[Name] = ToJson(Member);
      return O;
    }
  }
  return nullptr;
}

bool FromJson(const TJson& J, TWBValue& V, int Depth, std::string& Error) {
  if (Depth > kMaxDepth) {
    Error = "values nested more than " + std::to_string(kMaxDepth) + " levels deep";
    return false;
  }
  switch (J.type()) {
    case TJson::value_t::null: V = TWBValue(); return true;
    case TJson::value_t::boolean: V = TWBValue::Boolean(J.get<bool>()); return true;
    case TJson::value_t::number_integer: V = TWBValue::Integer(J.get<int64_t>()); return true;
    case TJson::value_t::number_unsigned: {
      const uint64_t U = J.get<uint64_t>();
      if (U > uint64_t(INT64_MAX)) {
        V = TWBValue::Float(double(U));
        return true;
      }
      V = TWBValue::Integer(int64_t(U));
      return true;
    }
    case TJson::value_t::number_float: V = TWBValue::Float(J.get<double>()); return true;
    case TJson::value_t::string: V = TWBValue::String(J.get<std::string>()); return true;
    case TJson::value_t::array: {
      std::vector<TWBValue> Items(J.size());
      for (size_t I = 0; I < J.size(); ++I)
        if (!FromJson(J[I], Items[I], Depth + 1, Error)) return false;
      V = TWBValue::List(std::move(Items));
      return true;
    }
    case TJson::value_t::object: {
      if (J.size() == 1 && J.contains("$binary")) {
        std::vector<uint8_t> Bytes;
        if (!J["$binary"].is_string() || !FromBase64(J["$binary"].get<std::string>(), Bytes)) {
          Error = "a $binary value that is not base64";
          return false;
        }
        V = TWBValue::Binary(std::move(Bytes));
        return true;
      }
      TWBValue::TMembers Members;
      for (const auto& [Key, Item] : J.items()) {
        TWBValue Member;
        if (!FromJson(Item, Member, Depth + 1, Error)) return false;
        Members.emplace_back(Key, std::move(Member));
      }
      V = TWBValue::Object(std::move(Members));
      return true;
    }
    default: Error = "a value of a kind documents do not hold"; return false;
  }
}

bool SplitPin(const std::string& Text, std::string& Component, std::string& Pin) {
  const size_t Dot = Text.find('.');
  if (Dot == std::string::npos || Dot == 0 || Dot + 1 == Text.size()) return false;
  Component = Text.substr(0, Dot);
  Pin = Text.substr(Dot + 1);
  return true;
}

}  // namespace

bool ParseDocument(const std::string& Text, TWBDocument& Document, std::string& Error) {
  // Depth is checked while parsing, before any tree is built, so that a
  // hostile nesting cannot exhaust the stack.
  int Depth = 0;
  bool TooDeep = false;
  TJson J = TJson::parse(
      Text,
      [&](int D, TJson::parse_event_t, TJson&) {
        Depth = std::max(Depth, D);
        if (D > kMaxDepth + 4) TooDeep = true;
        return !TooDeep;
      },
      false);
  if (TooDeep) {
    Error = "the document nests values too deeply";
    return false;
  }
  if (J.is_discarded()) {
    Error = "the document is not JSON text";
    return false;
  }
  if (!J.is_object()) {
    Error = "a document is an object with \"components\" and \"connections\"";
    return false;
  }
  TWBDocument Result;
  for (const auto& [Key, Item] : J.items())
    if (Key != "components" && Key != "connections") {
      Error = "unknown document entry \"" + Key + "\"";
      return false;
    }
  if (J.contains("components")) {
    if (!J["components"].is_array()) {
      Error = "\"components\" must be a list";
      return false;
    }
    for (const TJson& C : J["components"]) {
      TWBDocumentComponent Item;
      if (!C.is_object() || !C.contains("class") || !C["class"].is_string() || !C.contains("name") ||
          !C["name"].is_string()) {
        Error = "each component needs a \"class\" and a \"name\"";
        return false;
      }
      Item.ClassName = C["class"].get<std::string>();
      Item.Name = C["name"].get<std::string>();
      for (const auto& [Key, Value] : C.items())
        if (Key != "class" && Key != "name" && Key != "properties") {
          Error = "component " + Item.Name + ": unknown entry \"" + Key + "\"";
          return false;
        }
      Item.Properties = TWBValue::Object();
      if (C.contains("properties")) {
        if (!C["properties"].is_object()) {
          Error = "component " + Item.Name + ": \"properties\" must be an object";
          return false;
        }
        std::string Why;
        if (!FromJson(C["properties"], Item.Properties, 1, Why)) {
          Error = "component " + Item.Name + ": " + Why;
          return false;
        }
      }
      Result.Components.push_back(std::move(Item));
    }
  }
  if (J.contains("connections")) {
    if (!J["connections"].is_array()) {
      Error = "\"connections\" must be a list";
      return false;
    }
    for (const TJson& C : J["connections"]) {
      if (!C.is_object() || C.size() != 2 || !C.contains("from") || !C["from"].is_string() || !C.contains("to") ||
          !C["to"].is_string()) {
        Error = "each connection is { \"from\": \"component.pin\", \"to\": \"component.pin\" }";
        return false;
      }
      Result.Connections.push_back({C["from"].get<std::string>(), C["to"].get<std::string>()});
    }
  }
  Document = std::move(Result);
  return true;
}

std::string WriteDocument(const TWBDocument& Document) {
  TJson J = TJson::object();
  J["components"] = TJson::array();
  for (const auto& C : Document.Components) {
    TJson Item = TJson::object();
    Item["class"] = C.ClassName;
    Item["name"] = C.Name;
    if (!C.Properties.Members().empty()) Item["properties"] = ToJson(C.Properties);
    J["components"].push_back(std::move(Item));
  }
  J["connections"] = TJson::array();
  for (const auto& C : Document.Connections) J["connections"].push_back(TJson{{"from", C.From}, {"to", C.To}});
  return J.dump(2) + "\n";
}

TWBDocument SaveDocument(const std::vector<TWBComponent*>& Components) {
  TWBDocument D;
  for (TWBComponent* C : Components)
    D.Components.push_back({C->GetClassInfo().ClassName, C->GetName(), SaveComponent(*C)});
  for (TWBComponent* C : Components) {
    Threading::TLockGuard G(C->GetLock());
    for (TPWBasicPin* Pin : C->GetPins()) {
      if (!Pin->CanSend()) continue;
      for (size_t I = 0; I < Pin->GetSinkCount(); ++I) {
        TPWBasicPin* Sink = Pin->GetSink(I);
        const auto Peer = std::find_if(Components.begin(), Components.end(), [&](TWBComponent* X) {
          return static_cast<IPWPinOwner*>(X) == &Sink->GetOwner();
        });
        if (Peer != Components.end())
          D.Connections.push_back({C->GetName() + "." + Pin->GetName(), (*Peer)->GetName() + "." + Sink->GetName()});
      }
    }
  }
  return D;
}

bool LoadDocument(const TWBDocument& Document, TWBComponent& Owner, std::vector<TWBComponent*>& Made,
                  std::string& Error) {
  std::vector<TWBComponent*> Mine;
  const auto Fail = [&](const std::string& Why) {
    Error = Why;
    for (auto I = Mine.rbegin(); I != Mine.rend(); ++I) delete *I;
    return false;
  };
  // Classes and names first, so that a bad document makes nothing.
  std::map<std::string, size_t> Index;
  for (size_t I = 0; I < Document.Components.size(); ++I) {
    const auto& C = Document.Components[I];
    const TWBClassInfo* Class = Design::Components::FindComponentClass(C.ClassName);
    if (!Class || !Class->Create) return Fail("component " + C.Name + ": unknown class " + C.ClassName);
    if (C.Name.empty() || C.Name.find('.') != std::string::npos)
      return Fail("component \"" + C.Name + "\": a name is needed, without a full stop");
    if (!Index.emplace(C.Name, I).second) return Fail("component " + C.Name + ": the name is used twice");
  }
  for (const auto& Link : Document.Connections) {
    std::string FromC, FromP, ToC, ToP;
    if (!SplitPin(Link.From, FromC, FromP) || !SplitPin(Link.To, ToC, ToP))
      return Fail("connection " + Link.From + " -> " + Link.To + ": pins are named component.pin");
    if (!Index.count(FromC)) return Fail("connection " + Link.From + " -> " + Link.To + ": no component " + FromC);
    if (!Index.count(ToC)) return Fail("connection " + Link.From + " -> " + Link.To + ": no component " + ToC);
  }

  for (const auto& C : Document.Components) {
    TWBComponent* Component = Design::Components::CreateComponent(C.ClassName, &Owner);
    if (!Component) return Fail("component " + C.Name + ": class " + C.ClassName + " cannot be made");
    Mine.push_back(Component);
    Component->SetName(C.Name);
    // Errors while loading (a plug-in that does not open, a file that is not
    // there) end the load with the component's own message.
    std::string Reported;
    Component->OnError = [&Reported](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
      if (Reported.empty()) Reported = Message;
      Handled = true;
    };
    std::vector<std::string> Problems;
    LoadComponent(*Component, C.Properties, Problems);
    Component->OnError = nullptr;
    if (!Problems.empty()) return Fail("component " + Problems.front());
    if (!Reported.empty()) return Fail("component " + C.Name + ": " + Reported);
  }
  const auto FindPin = [&](const std::string& Text, bool Send) -> TPWBasicPin* {
    std::string C, P;
    SplitPin(Text, C, P);
    for (TPWBasicPin* Pin : Mine[Index[C]]->GetPublishedPins())
      if (Pin->GetName() == P && (Send ? Pin->CanSend() : Pin->CanReceive())) return Pin;
    return nullptr;
  };
  std::vector<std::pair<TPWBasicPin*, TPWBasicPin*>> Links;
  for (const auto& Link : Document.Connections) {
    TPWBasicPin* From = FindPin(Link.From, true);
    TPWBasicPin* To = FindPin(Link.To, false);
    if (!From) return Fail("connection " + Link.From + " -> " + Link.To + ": no pin " + Link.From + " that sends");
    if (!To) return Fail("connection " + Link.From + " -> " + Link.To + ": no pin " + Link.To + " that receives");
    if (From->GetCategory() != To->GetCategory())
      return Fail("connection " + Link.From + " -> " + Link.To + ": the pins carry different kinds of data");
    Links.emplace_back(From, To);
  }
  // Cycles: data flows from a pin's owner to the owners of the pins it feeds.
  // Owners are what pass data through (a component, or a device's channel
  // item), so a device whose inputs feed a chain that ends at its outputs is
  // no cycle.
  std::map<const IPWPinOwner*, std::vector<size_t>> Out;
  for (size_t L = 0; L < Links.size(); ++L) Out[&Links[L].first->GetOwner()].push_back(L);
  std::map<const IPWPinOwner*, int> Mark;  // absent new, 1 on the path, 2 done
  std::string Cycle;
  std::function<bool(const IPWPinOwner*)> Visit = [&](const IPWPinOwner* N) {
    Mark[N] = 1;
    for (size_t L : Out[N]) {
      const IPWPinOwner* M = &Links[L].second->GetOwner();
      if (Mark[M] == 1) {
        Cycle = Document.Connections[L].From + " -> " + Document.Connections[L].To;
        return true;
      }
      if (Mark[M] == 0 && Visit(M)) return true;
    }
    Mark[N] = 2;
    return false;
  };
  for (const auto& [From, To] : Links)
    if (Mark[&From->GetOwner()] == 0 && Visit(&From->GetOwner()))
      return Fail("the connections make a cycle (at " + Cycle + ")");
  for (size_t L = 0; L < Links.size(); ++L)
    if (!Links[L].first->Connect(*Links[L].second))
      return Fail("connection " + Document.Connections[L].From + " -> " + Document.Connections[L].To +
                  ": the pins do not connect");
  Made.insert(Made.end(), Mine.begin(), Mine.end());
  return true;
}

}  // namespace Quorvel
