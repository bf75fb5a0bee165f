// Chain documents: one or more components (class, name, properties with
// their groups, collections and extra properties) and the connections between
// their pins, as JSON text:
//
//   { "components": [ { "class": "TSRAudioFileSource", "name": "In",
//                       "properties": { "FileName": "in.wav" } }, ... ],
//     "connections": [ { "from": "In.Channel 1", "to": "Host.Input1" }, ... ] }
//
// A pin is named "<component>.<pin>", split at the first full stop. Binary
// values are written as { "$binary": "<base64>" }.
#pragma once

#include <string>
#include <vector>

#include "frame/Wbpersistence.h"

namespace Quorvel {

struct TWBDocumentComponent {
  std::string ClassName;
  std::string Name;
  TWBValue Properties;  // an object
};

struct TWBDocumentConnection {
  std::string From;  // "<component>.<pin>" of a pin that sends
  std::string To;    // "<component>.<pin>" of a pin that receives
};

struct TWBDocument {
  std::vector<TWBDocumentComponent> Components;
  std::vector<TWBDocumentConnection> Connections;
};

// [any thread] Parses Text; false with the reason (and Document untouched) when
// it is not a well-formed document.
bool ParseDocument(const std::string& Text, TWBDocument& Document, std::string& Error);
// [any thread] The document as JSON text, indented.
std::string WriteDocument(const TWBDocument& Document);

// [main thread] The components' classes, names and stored properties, and the
// connections among them (in component and pin order).
TWBDocument SaveDocument(const std::vector<TWBComponent*>& Components);
// [main thread] Makes the document's components (owned by Owner, in document
// order), loads their properties and connects their pins. Any problem (an
// unknown class or property, a bad value, a missing pin, pins of different
// kinds, a cycle, a name used twice) destroys what was made and answers false
// with one line naming the item in Error.
bool LoadDocument(const TWBDocument& Document, TWBComponent& Owner, std::vector<TWBComponent*>& Made,
                  std::string& Error);

}  // namespace Quorvel
