#include "plugin/windows/server.h"

#include <atomic>

namespace cnv::windows {
namespace {
std::atomic<long> live_objects{0};
std::atomic<long> locks{0};
}  // namespace

void ObjectCreated() { ++live_objects; }
void ObjectReleased() { --live_objects; }
bool CanUnload() { return live_objects == 0 && locks == 0; }

HRESULT STDMETHODCALLTYPE ClassFactory::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  if (iid == IID_IUnknown || iid == IID_IClassFactory) {
    *object = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE ClassFactory::AddRef() { return static_cast<ULONG>(++locks); }

ULONG STDMETHODCALLTYPE ClassFactory::Release() { return static_cast<ULONG>(--locks); }

HRESULT STDMETHODCALLTYPE ClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  return create_(iid, object);
}

HRESULT STDMETHODCALLTYPE ClassFactory::LockServer(BOOL lock) {
  if (lock) {
    ++locks;
  } else {
    --locks;
  }
  return S_OK;
}

}  // namespace cnv::windows
