#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "frame/class_table.h"
#include "frame/iids.h"
#include "frame/module.h"
#include "platform/object.h"

namespace {

using zemo::ComPtr;

struct IAlpha : IUnknown {
  static constexpr IID iid = MakeGuid("11111111-0000-0000-0000-000000000001");
  virtual HRESULT GetValue(LONG* out) = 0;
  virtual HRESULT Fail(int how) = 0;
  virtual HRESULT Reset() = 0;
};

struct IBeta : IUnknown {
  static constexpr IID iid = MakeGuid("11111111-0000-0000-0000-000000000002");
  virtual HRESULT SetValue(LONG v) = 0;
  virtual HRESULT Reset() = 0;  // same name and signature as IAlpha's, different meaning
};

struct INotOffered : IUnknown {
  static constexpr IID iid = MakeGuid("11111111-0000-0000-0000-000000000003");
};

// Let the class answer each Reset under its own name.
template <class D>
struct AlphaResetAs : IAlpha {
  using interface_type = IAlpha;
  HRESULT Reset() final { return static_cast<D*>(this)->ResetAlpha(); }
};
template <class D>
struct BetaResetAs : IBeta {
  using interface_type = IBeta;
  HRESULT Reset() final { return static_cast<D*>(this)->ResetBeta(); }
};

class Sample final : public zemo::Object<Sample, AlphaResetAs<Sample>, BetaResetAs<Sample>> {
 public:
  static inline std::atomic<int> s_live{0};
  static inline HRESULT s_finalConstructResult = S_OK;

  Sample() { ++s_live; }
  ~Sample() { --s_live; }

  HRESULT FinalConstruct() {
    // Interface traffic during construction must not destroy the object.
    ComPtr<IBeta> self;
    CheckHr(QueryInterface(IBeta::iid, self.OutVoid()));
    return s_finalConstructResult;
  }

  HRESULT GetValue(LONG* out) override {
    return Locked([&] {
      zemo::CheckOut(out);
      *out = m_value;
    });
  }
  HRESULT SetValue(LONG v) override { return Locked([&] { m_value = v; }); }
  HRESULT Fail(int how) override {
    return Locked([&] {
      m_value = -1;  // a failed operation keeps what it changed
      if (how == 0) AtlThrow(E_INVALIDARG);
      if (how == 1) throw std::runtime_error("no status");
      if (how == 2) throw 42;
      if (how == 3) CheckHr(E_NOTIMPL);
    });
  }
  HRESULT ResetAlpha() { return Locked([&] { m_value = 100; }); }
  HRESULT ResetBeta() { return Locked([&] { m_value = 200; }); }

  zemo::CObjectLock& Hold() { return ObjectLock(); }
  bool LockIsFree() {
    if (!ObjectLock().try_lock()) return false;
    ObjectLock().unlock();
    return true;
  }

 private:
  LONG m_value = 7;
};

TEST(ObjectSkeleton, QueryInterfaceFollowsTheRules) {
  ComPtr<IAlpha> a = zemo::MakeObject<Sample, IAlpha>();
  auto* impl = static_cast<Sample*>(a.Get());
  EXPECT_EQ(1u, impl->RefCountForTesting());

  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(E_NOINTERFACE, a->QueryInterface(INotOffered::iid, &out));
  EXPECT_EQ(nullptr, out);  // cleared even on failure
  EXPECT_EQ(E_POINTER, a->QueryInterface(IAlpha::iid, nullptr));
  EXPECT_EQ(1u, impl->RefCountForTesting());

  // IUnknown is the first interface, and the same pointer from any interface.
  ComPtr<IUnknown> u1, u2;
  ASSERT_EQ(S_OK, a->QueryInterface(IUnknown::iid, u1.OutVoid()));
  ComPtr<IBeta> b;
  ASSERT_EQ(S_OK, a.As(&b));
  ASSERT_EQ(S_OK, b->QueryInterface(IUnknown::iid, u2.OutVoid()));
  EXPECT_EQ(u1.Get(), u2.Get());
  EXPECT_EQ(static_cast<void*>(a.Get()), static_cast<void*>(u1.Get()));
  EXPECT_NE(static_cast<void*>(a.Get()), static_cast<void*>(b.Get()));
  EXPECT_EQ(4u, impl->RefCountForTesting());

  // Operations reach the one object through either interface.
  ASSERT_EQ(S_OK, b->SetValue(5));
  LONG v = 0;
  ASSERT_EQ(S_OK, a->GetValue(&v));
  EXPECT_EQ(5, v);
  EXPECT_EQ(E_POINTER, a->GetValue(nullptr));
}

TEST(ObjectSkeleton, SameNamedOperationsAnswerSeparately) {
  ComPtr<IAlpha> a = zemo::MakeObject<Sample, IAlpha>();
  ComPtr<IBeta> b = a.Query<IBeta>();
  LONG v = 0;
  ASSERT_EQ(S_OK, a->Reset());
  a->GetValue(&v);
  EXPECT_EQ(100, v);
  ASSERT_EQ(S_OK, b->Reset());
  a->GetValue(&v);
  EXPECT_EQ(200, v);
}

TEST(ObjectSkeleton, LastReleaseDestroysAndModuleCountFollows) {
  LONG before = zemo::ModuleCount::Get();
  int live = Sample::s_live;
  {
    ComPtr<IAlpha> a = zemo::MakeObject<Sample, IAlpha>();
    EXPECT_EQ(before + 1, zemo::ModuleCount::Get());
    EXPECT_EQ(S_FALSE, DllCanUnloadNow());
    EXPECT_EQ(live + 1, Sample::s_live);
    ComPtr<IBeta> b = a.Query<IBeta>();
    a = nullptr;
    EXPECT_EQ(live + 1, Sample::s_live);  // b still holds it
  }
  EXPECT_EQ(live, Sample::s_live);
  EXPECT_EQ(before, zemo::ModuleCount::Get());
}

TEST(ObjectSkeleton, FailuresBecomeStatusesAndLeaveTheLockFree) {
  ComPtr<IAlpha> a = zemo::MakeObject<Sample, IAlpha>();
  auto* impl = static_cast<Sample*>(a.Get());
  EXPECT_EQ(E_INVALIDARG, a->Fail(0));
  EXPECT_EQ(E_UNEXPECTED, a->Fail(1));
  EXPECT_EQ(E_UNEXPECTED, a->Fail(2));
  EXPECT_EQ(E_NOTIMPL, a->Fail(3));
  LONG v = 0;
  a->GetValue(&v);
  EXPECT_EQ(-1, v);  // nothing rolled back

  // Another thread can take the lock at once: no failure path kept it.
  std::atomic<bool> free{false};
  std::thread([&] { free = impl->LockIsFree(); }).join();
  EXPECT_TRUE(free);
  std::thread([&] { EXPECT_EQ(S_OK, a.Query<IBeta>()->SetValue(9)); }).join();
  a->GetValue(&v);
  EXPECT_EQ(9, v);
}

TEST(ObjectSkeleton, AnOperationWaitsForTheLock) {
  ComPtr<IAlpha> a = zemo::MakeObject<Sample, IAlpha>();
  auto* impl = static_cast<Sample*>(a.Get());
  impl->Hold().lock();
  std::atomic<bool> done{false};
  ComPtr<IBeta> b = a.Query<IBeta>();
  std::thread t([&] {
    b->SetValue(3);
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(done);  // blocked behind the lock held here
  impl->Hold().unlock();
  t.join();
  EXPECT_TRUE(done);
  LONG v = 0;
  a->GetValue(&v);
  EXPECT_EQ(3, v);
}

TEST(ObjectSkeleton, FailedFinalConstructDestroysTheObject) {
  int live = Sample::s_live;
  LONG before = zemo::ModuleCount::Get();
  Sample::s_finalConstructResult = E_FAIL;
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(E_FAIL, Sample::CreateObject(IAlpha::iid, &out));
  Sample::s_finalConstructResult = S_OK;
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(live, Sample::s_live);
  EXPECT_EQ(before, zemo::ModuleCount::Get());

  EXPECT_EQ(E_NOINTERFACE, Sample::CreateObject(INotOffered::iid, &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(live, Sample::s_live);
}

// A class that accepts an outer object, as only the context collection does.
class Aggregatable final : public zemo::Object<Aggregatable, IAlpha> {
 public:
  static constexpr bool kAggregatable = true;
  static inline std::atomic<int> s_live{0};
  Aggregatable() { ++s_live; }
  ~Aggregatable() { --s_live; }
  HRESULT GetValue(LONG* out) override { return Locked([&] { *out = 1; }); }
  HRESULT Fail(int) override { return E_FAIL; }
  HRESULT Reset() override { return S_OK; }
};

// A hand-made outer object: it offers IBeta itself and IAlpha through the
// inner object it keeps by its inner IUnknown.
class Outer final : public IBeta {
 public:
  HRESULT QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (iid == IUnknown::iid || iid == IBeta::iid) {
      *out = static_cast<IBeta*>(this);
      AddRef();
      return S_OK;
    }
    if (iid == IAlpha::iid && inner) return inner->QueryInterface(iid, out);
    return E_NOINTERFACE;
  }
  ULONG AddRef() override { return ++refs; }
  ULONG Release() override { return --refs; }
  HRESULT SetValue(LONG) override { return S_OK; }
  HRESULT Reset() override { return S_OK; }

  ULONG refs = 1;
  ComPtr<IUnknown> inner;
};

const zemo::ClassInfo kSampleRow{u"Sample", MakeGuid("11111111-0000-0000-0000-0000000000A1"), false,
                                 &zemo::CreateClass<Sample>, {&IAlpha::iid, &IBeta::iid}};
const zemo::ClassInfo kAggregatableRow{u"Aggregatable", MakeGuid("11111111-0000-0000-0000-0000000000A2"), true,
                                       &zemo::CreateClass<Aggregatable>, {&IAlpha::iid}};

TEST(ClassFactory, IsCachedPerClassAndCreatesObjects) {
  ComPtr<IClassFactory> f1, f2, other;
  ASSERT_EQ(S_OK, zemo::GetClassObjectFor(kSampleRow, IClassFactory::iid, f1.OutVoid()));
  ASSERT_EQ(S_OK, zemo::GetClassObjectFor(kSampleRow, IClassFactory::iid, f2.OutVoid()));
  ASSERT_EQ(S_OK, zemo::GetClassObjectFor(kAggregatableRow, IClassFactory::iid, other.OutVoid()));
  EXPECT_EQ(f1.Get(), f2.Get());
  EXPECT_NE(f1.Get(), other.Get());

  ComPtr<IAlpha> a;
  EXPECT_EQ(E_POINTER, f1->CreateInstance(nullptr, IAlpha::iid, nullptr));
  ASSERT_EQ(S_OK, f1->CreateInstance(nullptr, IAlpha::iid, a.OutVoid()));
  EXPECT_EQ(1u, static_cast<Sample*>(a.Get())->RefCountForTesting());

  // An outer object is refused by every class but the one that allows it.
  ComPtr<IAlpha> b;
  EXPECT_EQ(CLASS_E_NOAGGREGATION, f1->CreateInstance(a.Get(), IAlpha::iid, b.OutVoid()));
  EXPECT_EQ(nullptr, b.Get());
  // The outer object of an aggregate can only ask for IUnknown.
  EXPECT_EQ(CLASS_E_NOAGGREGATION, other->CreateInstance(a.Get(), IAlpha::iid, b.OutVoid()));
  ComPtr<IUnknown> inner;
  EXPECT_EQ(S_OK, other->CreateInstance(a.Get(), IUnknown::iid, inner.OutVoid()));
  EXPECT_NE(nullptr, inner.Get());
}

TEST(Aggregation, InterfacesDelegateToTheOuterObjectAndTheInnerOwnsTheLifetime) {
  int live = Aggregatable::s_live;
  Outer outer;
  ASSERT_EQ(S_OK, zemo::CreateClass<Aggregatable>(&outer, IUnknown::iid, outer.inner.OutVoid()));
  EXPECT_EQ(live + 1, Aggregatable::s_live);
  EXPECT_EQ(1u, outer.refs) << "creation leaves the outer count as it was";

  // The aggregate is one object: IAlpha, got through the outer object, leads
  // back to the outer object's identity and to its other interfaces.
  ComPtr<IAlpha> alpha;
  ASSERT_EQ(S_OK, outer.QueryInterface(IAlpha::iid, alpha.OutVoid()));
  EXPECT_EQ(2u, outer.refs) << "the inner object's interfaces count on the outer object";
  LONG v = 0;
  EXPECT_EQ(S_OK, alpha->GetValue(&v));
  EXPECT_EQ(1, v);
  ComPtr<IUnknown> identity;
  ASSERT_EQ(S_OK, alpha->QueryInterface(IUnknown::iid, identity.OutVoid()));
  EXPECT_EQ(static_cast<IUnknown*>(static_cast<IBeta*>(&outer)), identity.Get());
  ComPtr<IBeta> beta;
  EXPECT_EQ(S_OK, alpha->QueryInterface(IBeta::iid, beta.OutVoid()));
  identity.Reset();
  beta.Reset();
  alpha.Reset();
  EXPECT_EQ(1u, outer.refs);

  // The inner IUnknown answers for the inner object alone, with its own count.
  ComPtr<IUnknown> again;
  ASSERT_EQ(S_OK, outer.inner->QueryInterface(IUnknown::iid, again.OutVoid()));
  EXPECT_EQ(outer.inner.Get(), again.Get());
  EXPECT_EQ(E_NOINTERFACE, outer.inner->QueryInterface(IBeta::iid, again.OutVoid()));
  EXPECT_EQ(nullptr, again.Get());
  EXPECT_EQ(1u, outer.refs);

  outer.inner.Reset();
  EXPECT_EQ(live, Aggregatable::s_live) << "releasing the inner IUnknown destroys the inner object";

  // Without an outer object the class is an ordinary one.
  ComPtr<IAlpha> plain;
  ASSERT_EQ(S_OK, zemo::CreateClass<Aggregatable>(nullptr, IAlpha::iid, plain.OutVoid()));
  ComPtr<IUnknown> plainIdentity;
  ASSERT_EQ(S_OK, plain->QueryInterface(IUnknown::iid, plainIdentity.OutVoid()));
  EXPECT_EQ(static_cast<IUnknown*>(plain.Get()), plainIdentity.Get());
}

TEST(ClassFactory, LockServerKeepsTheModuleAndCachedFactoriesDoNot) {
  ComPtr<IClassFactory> f;
  ASSERT_EQ(S_OK, zemo::GetClassObjectFor(kSampleRow, IClassFactory::iid, f.OutVoid()));
  LONG before = zemo::ModuleCount::Get();
  f->LockServer(TRUE);
  EXPECT_EQ(before + 1, zemo::ModuleCount::Get());
  EXPECT_EQ(S_FALSE, DllCanUnloadNow());
  f->LockServer(FALSE);
  EXPECT_EQ(before, zemo::ModuleCount::Get());
}

TEST(ClassTable, HasEveryClassOnceWithItsInterfaces) {
  auto table = zemo::ClassTable();
  ASSERT_EQ(33u, table.size());
  for (size_t i = 0; i < table.size(); ++i) {
    EXPECT_FALSE(table[i].interfaces.empty()) << zemo::ToUtf8(table[i].name);
    for (size_t j = i + 1; j < table.size(); ++j) EXPECT_FALSE(table[i].clsid == table[j].clsid);
    EXPECT_EQ(table[i].aggregatable, std::u16string(table[i].name) == u"ZemoStatsContextCollection");
  }
  const zemo::ClassInfo* node = zemo::FindClass(MakeGuid("7FABA337-7DB5-4029-B400-400D39DEE2EC"));
  ASSERT_NE(nullptr, node);
  EXPECT_EQ(u"ZemoStats.NodeStats.1", node->ProgId());
  EXPECT_EQ(u"ZemoStats.NodeStats", node->VersionIndependentProgId());
  EXPECT_EQ(u"NodeStats Class", node->Description());
  EXPECT_EQ(12u, node->interfaces.size());
}

// Interfaces of a row that its served class does not offer yet, each gap with
// the work that closes it. An entry must go once that work lands.
struct PendingInterfaces {
  const char16_t* name;
  std::vector<const IID*> missing;
  const char* why;
};
// None at present: every served class offers its whole row.
const std::vector<PendingInterfaces> kPendingInterfaces;

bool Lists(const std::vector<const IID*>& iids, const IID& iid) {
  return std::any_of(iids.begin(), iids.end(), [&](const IID* p) { return *p == iid; });
}

const PendingInterfaces* PendingFor(const zemo::ClassInfo& row) {
  for (const PendingInterfaces& p : kPendingInterfaces)
    if (std::u16string_view(p.name) == row.name) return &p;
  return nullptr;
}

// Every class the module serves offers exactly its listed interfaces, in
// order, with IUnknown answered by the first, but for the gaps listed above;
// it refuses an outer object unless its row allows one.
TEST(ClassTable, ServedClassesMatchTheirRows) {
  for (const PendingInterfaces& p : kPendingInterfaces) {
    const zemo::ClassInfo* row = nullptr;
    for (const zemo::ClassInfo& r : zemo::ClassTable())
      if (std::u16string_view(p.name) == r.name) row = &r;
    ASSERT_NE(nullptr, row) << zemo::ToUtf8(p.name);
    EXPECT_NE(nullptr, row->create) << zemo::ToUtf8(p.name) << ": a gap is listed only for a served class";
    for (const IID* iid : p.missing)
      EXPECT_TRUE(Lists(row->interfaces, *iid)) << zemo::ToUtf8(p.name) << ": a listed gap is not in its row";
  }
  for (const zemo::ClassInfo& row : zemo::ClassTable()) {
    if (!row.create) continue;
    SCOPED_TRACE(zemo::ToUtf8(row.name));
    const PendingInterfaces* pending = PendingFor(row);
    ComPtr<IUnknown> obj;
    ASSERT_EQ(S_OK, row.create(nullptr, IUnknown::iid, obj.OutVoid()));
    ComPtr<IUnknown> first;
    ASSERT_EQ(S_OK, obj->QueryInterface(*row.interfaces[0], first.OutVoid()));
    EXPECT_EQ(static_cast<void*>(obj.Get()), static_cast<void*>(first.Get()));
    for (const IID* iid : row.interfaces) {
      bool missing = pending && Lists(pending->missing, *iid);
      ComPtr<IUnknown> p;
      EXPECT_EQ(missing ? E_NOINTERFACE : S_OK, obj->QueryInterface(*iid, p.OutVoid()))
          << (missing ? pending->why : "listed in its row");
    }
    ComPtr<IUnknown> inner;
    HRESULT hr = row.create(obj.Get(), IUnknown::iid, inner.OutVoid());
    EXPECT_EQ(row.aggregatable, hr != CLASS_E_NOAGGREGATION);
  }
}

}  // namespace
