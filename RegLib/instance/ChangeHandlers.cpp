// The operations of a store that deal with change handlers.
#include "RegLib/file/FileStore.h"

namespace VQRegLib {

void CRegLibImpl::DeleteRegWatcherThread() {}

void CRegLibImplFile::SetRegistryChangeHandler(CRegistryChangeHandler* /*handler*/) {}

void CRegLibImplFile::ClrRegistryChangeHandler(CRegistryChangeHandler* /*handler*/) {}

}  // namespace VQRegLib
