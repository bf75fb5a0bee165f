// The frame's registration service: the catalogue of component classes a
// host application can list and create by class name. Component units hand
// their class to RegisterComponents from their RegisterPkg; the frame's own
// ready-made components are always known.
#pragma once

#include <string>
#include <vector>

namespace Quorvel {

class TWBComponent;
struct TWBClassInfo;

namespace Design::Components {

// [main thread] Adds the classes to the catalogue, after those registered
// before; a class registered again keeps its first place.
void RegisterComponents(const std::vector<const TWBClassInfo*>& Classes);
// [main thread] Removes the classes (a unit's finalization).
void UnregisterComponents(const std::vector<const TWBClassInfo*>& Classes);
// [main thread] The registered classes, in registration order.
std::vector<const TWBClassInfo*> GetRegisteredComponents();
// [main thread] The frame's own ready-made components (tone, gain, files).
std::vector<const TWBClassInfo*> GetFrameComponents();
// [main thread] A class by name, registered or the frame's own; nullptr when unknown.
const TWBClassInfo* FindComponentClass(const std::string& ClassName);
// [main thread] A new component of that class owned by Owner; nullptr when
// the class is unknown or cannot be created by name.
TWBComponent* CreateComponent(const std::string& ClassName, TWBComponent* Owner);

}  // namespace Design::Components
}  // namespace Quorvel
