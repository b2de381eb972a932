// The in-process server's own state: how many of its objects and locks are
// alive, which DllCanUnloadNow answers from, and the class factory that
// DllGetClassObject hands out.
#pragma once

#include <objbase.h>

namespace cnv::windows {

// Each object of the server counts itself from its construction to its end.
void ObjectCreated();
void ObjectReleased();
// True when no object, no lock and no reference to a class factory is alive.
bool CanUnload();

// A class factory that makes its objects with `create`, which gives the
// object's interface `iid` in *object as QueryInterface does. Meant to live
// as long as the library: its references count as locks of the server.
class ClassFactory : public IClassFactory {
 public:
  using Create = HRESULT (*)(REFIID iid, void** object);
  explicit ClassFactory(Create create) : create_(create) {}
  virtual ~ClassFactory() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  // No aggregation: an outer object gives CLASS_E_NOAGGREGATION.
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

 private:
  Create create_;
};

}  // namespace cnv::windows
