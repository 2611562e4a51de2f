/** Owners of platform handles. */
#ifndef KORVANE_SVCMGR_PLATFORM_HANDLES_H_
#define KORVANE_SVCMGR_PLATFORM_HANDLES_H_

#include <memory>

#include "package.h"
#include "rpc_port.h"

namespace svcmgr {

template <typename Handle, int (*Destroy)(Handle)>
struct HandleRelease {
  using pointer = Handle;
  void operator()(Handle handle) const noexcept { Destroy(handle); }
};

template <typename Handle, int (*Destroy)(Handle)>
using HandleOwner = std::unique_ptr<void, HandleRelease<Handle, Destroy>>;

using PackageInfoOwner = HandleOwner<package_info_h, package_info_destroy>;
using AppInfoOwner = HandleOwner<app_info_h, app_info_destroy>;
using ParcelOwner = HandleOwner<rpc_port_parcel_h, rpc_port_parcel_destroy>;

}  // namespace svcmgr

#endif  // KORVANE_SVCMGR_PLATFORM_HANDLES_H_
