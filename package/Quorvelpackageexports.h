// The entry points of the package's shared library (quorvelpkg.dll /
// quorvelpkg.so), plain C so that any host can call them whatever its
// compiler: the package's start-up and shut-down, its unit table, the
// component catalogue, and components made by class name.
#pragma once

#include <stddef.h>

#ifdef _WIN32
#define QUORVEL_PACKAGE_EXPORT __declspec(dllexport)
#else
#define QUORVEL_PACKAGE_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Runs the units' initialization in unit order (registers the components).
QUORVEL_PACKAGE_EXPORT void Initialize(void);
// Runs the units' finalization in reverse unit order.
QUORVEL_PACKAGE_EXPORT void Finalize(void);
// The package's units: how many, and unit Index's name and component class
// (NULL for a unit without one, or Index out of range).
QUORVEL_PACKAGE_EXPORT size_t GetPackageInfoTable(void);
QUORVEL_PACKAGE_EXPORT const char* GetPackageUnitName(size_t Index);
QUORVEL_PACKAGE_EXPORT const char* GetPackageUnitClass(size_t Index);
// The catalogue: registered classes in registration order.
QUORVEL_PACKAGE_EXPORT size_t QuorvelComponentCount(void);
QUORVEL_PACKAGE_EXPORT const char* QuorvelComponentClass(size_t Index);
// A component of the named class (registered or one of the frame's own),
// NULL when there is none; destroy it with QuorvelDestroyComponent.
QUORVEL_PACKAGE_EXPORT void* QuorvelCreateComponent(const char* ClassName);
QUORVEL_PACKAGE_EXPORT const char* QuorvelComponentClassOf(void* Component);
QUORVEL_PACKAGE_EXPORT void QuorvelDestroyComponent(void* Component);

#ifdef __cplusplus
}
#endif
