#include "platform/class_store.h"

#include <dlfcn.h>

#include <mutex>

#include "platform/object.h"
#include "platform/strings.h"
#include "platform/xml_document.h"

namespace zemo {
namespace {

struct Store {
  std::mutex lock;
  RegistryKey roots;  // children: HKCR, HKLM, HKCU
  std::map<std::u16string, DllGetClassObjectFn> modules;
  struct ClassObject {
    CLSID clsid;
    IUnknown* object;
    DWORD cookie;
  };
  std::vector<ClassObject> classObjects;
  DWORD nextCookie = 1;
};

Store& TheStore() {
  static Store* s = new Store();  // never destroyed: modules may call in during exit
  return *s;
}

// Finds a key by a backslash-separated path below `from`.
const RegistryKey* Find(const RegistryKey& from, std::u16string_view path) {
  const RegistryKey* k = &from;
  while (!path.empty()) {
    size_t cut = path.find(u'\\');
    std::u16string part(path.substr(0, cut));
    auto it = k->keys.find(part);
    if (it == k->keys.end()) return nullptr;
    k = &it->second;
    path = cut == std::u16string_view::npos ? std::u16string_view() : path.substr(cut + 1);
  }
  return k;
}

// A root's short name for its short or long name; empty if it is none.
std::u16string RootName(std::u16string_view name) {
  static const std::pair<const char16_t*, const char16_t*> kRoots[] = {
      {u"HKCR", u"HKEY_CLASSES_ROOT"}, {u"HKLM", u"HKEY_LOCAL_MACHINE"}, {u"HKCU", u"HKEY_CURRENT_USER"}};
  for (auto [shortName, longName] : kRoots)
    if (WideEqualNoCase(name, shortName) || WideEqualNoCase(name, longName)) return shortName;
  return {};
}

constexpr HRESULT kNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

// The key of a full path, made with the keys above it when `create`; null
// if it is missing. `hr` says why: an unknown root, or a missing key.
RegistryKey* FindFull(std::u16string_view path, bool create, HRESULT& hr) {
  size_t cut = path.find(u'\\');
  std::u16string root = RootName(path.substr(0, cut));
  hr = E_INVALIDARG;
  if (root.empty()) return nullptr;
  RegistryKey* k = &TheStore().roots.keys[root];
  path = cut == std::u16string_view::npos ? std::u16string_view() : path.substr(cut + 1);
  hr = kNotFound;
  while (!path.empty()) {
    cut = path.find(u'\\');
    std::u16string part(path.substr(0, cut));
    path = cut == std::u16string_view::npos ? std::u16string_view() : path.substr(cut + 1);
    if (part.empty()) continue;
    auto it = k->keys.find(part);
    if (it == k->keys.end()) {
      if (!create) return nullptr;
      it = k->keys.emplace(std::move(part), RegistryKey()).first;
    }
    k = &it->second;
  }
  hr = S_OK;
  return k;
}

std::u16string DumpValue(const RegistryValue& v) {
  static const char16_t kHex[] = u"0123456789abcdef";
  if (auto text = v.AsText()) return *text;
  if (auto number = v.AsNumber()) return u"dword:" + FromUtf8(std::to_string(*number));
  std::u16string out;
  if (v.type == REG_MULTI_SZ) {
    for (char16_t c : v.AsUnits()) out += c ? c : u'|';
    return u"multi:" + out;
  }
  for (uint8_t b : v.data) out += {kHex[b >> 4], kHex[b & 15]};
  return u"hex(" + FromUtf8(std::to_string(v.type)) + u"):" + out;
}

const RegistryKey* FindClassesRoot(std::u16string_view path) {
  auto& store = TheStore();
  auto it = store.roots.keys.find(u"HKCR");
  if (it == store.roots.keys.end()) return nullptr;
  return Find(it->second, path);
}

// ---- the registrar ---------------------------------------------------------

class Script {
 public:
  explicit Script(std::u16string_view text) : m_text(text) {}

  // Applies the whole script to `roots`; false on a syntax error.
  bool Run(RegistryKey& roots, bool registering) {
    while (true) {
      std::u16string name;
      if (!Token(name)) return true;  // end of script
      if (name == u"HKEY_CLASSES_ROOT") name = u"HKCR";
      if (name == u"HKEY_LOCAL_MACHINE") name = u"HKLM";
      if (name == u"HKEY_CURRENT_USER") name = u"HKCU";
      if (name != u"HKCR" && name != u"HKLM" && name != u"HKCU") return false;
      std::u16string brace;
      if (!Token(brace) || brace != u"{") return false;
      if (!Keys(&roots.keys[name], registering)) return false;
    }
  }

 private:
  // One key body, after its "{", up to and including its "}". A null key
  // means the branch is being skipped (unregistering below a deleted key).
  bool Keys(RegistryKey* key, bool registering) {
    while (true) {
      std::u16string tok;
      if (!Token(tok)) return false;
      if (tok == u"}") return true;
      bool noRemove = false, forceRemove = false, isValue = false;
      if (tok == u"NoRemove") {
        noRemove = true;
        if (!Token(tok)) return false;
      } else if (tok == u"ForceRemove") {
        forceRemove = true;
        if (!Token(tok)) return false;
      }
      if (tok == u"val") {
        isValue = true;
        if (!Token(tok)) return false;
      }
      if (tok == u"{" || tok == u"}" || tok == u"=") return false;
      std::u16string name = tok;
      std::optional<std::u16string> value;
      bool isNumber = false;
      size_t save = m_pos;
      std::u16string next;
      bool hasNext = Token(next);
      if (hasNext && next == u"=") {
        std::u16string type, text;
        if (!Token(type) || (type != u"s" && type != u"d")) return false;
        if (!Token(text) || text == u"{" || text == u"}") return false;
        isNumber = type == u"d";
        if (isNumber && !ParseNumber(text)) return false;
        value = text;
        save = m_pos;
        hasNext = Token(next);
      }
      if (isValue) {
        if (!value) return false;
        m_pos = save;
        if (key) {
          if (registering)
            key->values[name] = isNumber ? RegistryValue::Number(*ParseNumber(*value)) : RegistryValue::Text(*value);
          else
            key->values.erase(name);
        }
        continue;
      }
      bool hasBody = hasNext && next == u"{";
      if (!hasBody) m_pos = save;
      RegistryKey* child = nullptr;
      if (key) {
        if (registering) {
          if (forceRemove) key->keys.erase(name);
          child = &key->keys[name];
          if (value) child->defaultValue = *value;
        } else if (noRemove) {
          auto it = key->keys.find(name);
          child = it == key->keys.end() ? nullptr : &it->second;
        } else {
          key->keys.erase(name);  // the whole subtree goes
        }
      }
      if (hasBody && !Keys(child, registering)) return false;
    }
  }

  // The next token: a brace, "=", a quoted text ('' stands for one quote), or
  // a run of other non-blank characters. False at the end of the text.
  bool Token(std::u16string& out) {
    out.clear();
    while (m_pos < m_text.size() && (m_text[m_pos] == u' ' || m_text[m_pos] == u'\t' || m_text[m_pos] == u'\r' ||
                                     m_text[m_pos] == u'\n'))
      ++m_pos;
    if (m_pos >= m_text.size()) return false;
    char16_t c = m_text[m_pos];
    if (c == u'{' || c == u'}' || c == u'=') {
      // A brace that opens a GUID name is part of the name.
      if (c == u'{' && m_pos + 1 < m_text.size() && m_text[m_pos + 1] != u' ' && m_text[m_pos + 1] != u'\r' &&
          m_text[m_pos + 1] != u'\n' && m_text[m_pos + 1] != u'\t') {
        return Bare(out);
      }
      out = c;
      ++m_pos;
      return true;
    }
    if (c == u'\'') {
      ++m_pos;
      while (m_pos < m_text.size()) {
        if (m_text[m_pos] == u'\'') {
          if (m_pos + 1 < m_text.size() && m_text[m_pos + 1] == u'\'') {
            out += u'\'';
            m_pos += 2;
            continue;
          }
          ++m_pos;
          return true;
        }
        out += m_text[m_pos++];
      }
      m_bad = true;
      out.clear();
      return false;  // unterminated text
    }
    return Bare(out);
  }

  // A number value: decimal, or hexadecimal after 0x.
  static std::optional<uint32_t> ParseNumber(std::u16string_view text) {
    unsigned base = 10;
    if (text.size() > 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) {
      base = 16;
      text.remove_prefix(2);
    }
    if (text.empty()) return std::nullopt;
    uint64_t v = 0;
    for (char16_t c : text) {
      unsigned d = c >= u'0' && c <= u'9'   ? c - u'0'
                   : c >= u'a' && c <= u'f' ? c - u'a' + 10
                   : c >= u'A' && c <= u'F' ? c - u'A' + 10
                                            : 99;
      if (d >= base) return std::nullopt;
      v = v * base + d;
      if (v > UINT32_MAX) return std::nullopt;
    }
    return static_cast<uint32_t>(v);
  }

  bool Bare(std::u16string& out) {
    while (m_pos < m_text.size()) {
      char16_t c = m_text[m_pos];
      if (c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'=' || c == u'\'') break;
      if (c == u'}' && !(out.size() && out[0] == u'{')) break;
      out += c;
      ++m_pos;
      if (c == u'}') break;
    }
    return true;
  }

 public:
  bool m_bad = false;

 private:
  std::u16string_view m_text;
  size_t m_pos = 0;
};

std::u16string Replace(std::u16string_view script, const std::map<std::u16string, std::u16string>& repl, bool& ok) {
  std::u16string out;
  ok = true;
  for (size_t i = 0; i < script.size(); ++i) {
    if (script[i] != u'%') {
      out += script[i];
      continue;
    }
    size_t end = script.find(u'%', i + 1);
    if (end == std::u16string_view::npos) {
      ok = false;
      return out;
    }
    std::u16string name(script.substr(i + 1, end - i - 1));
    if (name.empty()) {
      out += u'%';  // "%%" is a literal percent sign
    } else {
      auto it = repl.find(name);
      if (it == repl.end()) {
        ok = false;
        return out;
      }
      out += it->second;
    }
    i = end;
  }
  return out;
}

}  // namespace

RegistryValue RegistryValue::Text(std::u16string_view text, DWORD type) {
  std::u16string units(text);
  units += u'\0';
  return Units(units, type);
}

RegistryValue RegistryValue::Number(uint32_t value) {
  return {REG_DWORD, {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)}};
}

RegistryValue RegistryValue::Bytes(std::span<const uint8_t> bytes, DWORD type) {
  return {type, std::vector<uint8_t>(bytes.begin(), bytes.end())};
}

RegistryValue RegistryValue::Units(std::u16string_view units, DWORD type) {
  RegistryValue v{type, {}};
  v.data.reserve(units.size() * 2);
  for (char16_t c : units) {
    v.data.push_back(uint8_t(c));
    v.data.push_back(uint8_t(c >> 8));
  }
  return v;
}

std::optional<std::u16string> RegistryValue::AsText() const {
  if (type != REG_SZ && type != REG_EXPAND_SZ) return std::nullopt;
  std::u16string units = AsUnits();
  return units.substr(0, units.find(u'\0'));
}

std::optional<uint32_t> RegistryValue::AsNumber() const {
  if (type != REG_DWORD || data.size() != 4) return std::nullopt;
  return uint32_t(data[0]) | uint32_t(data[1]) << 8 | uint32_t(data[2]) << 16 | uint32_t(data[3]) << 24;
}

std::u16string RegistryValue::AsUnits() const {
  std::u16string units(data.size() / 2, u'\0');
  for (size_t i = 0; i < units.size(); ++i) units[i] = char16_t(data[2 * i] | data[2 * i + 1] << 8);
  return units;
}

bool RegistryKey::NoCase::operator()(const std::u16string& a, const std::u16string& b) const {
  return WideCompareNoCase(a, b) < 0;
}

HRESULT ClassStore::RunScript(std::u16string_view script, const std::map<std::u16string, std::u16string>& repl,
                              bool registering) {
  bool ok;
  std::u16string text = Replace(script, repl, ok);
  if (!ok) return E_FAIL;
  auto& store = TheStore();
  std::lock_guard<std::mutex> hold(store.lock);
  // A dry run on a copy first, so that a malformed script changes nothing.
  RegistryKey copy = store.roots;
  Script s(text);
  if (!s.Run(copy, registering) || s.m_bad) return E_FAIL;
  store.roots = std::move(copy);
  return S_OK;
}

std::optional<std::u16string> ClassStore::ReadDefault(std::u16string_view path) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  const RegistryKey* k = FindClassesRoot(path);
  if (!k) return std::nullopt;
  return k->defaultValue;
}

std::optional<std::u16string> ClassStore::ReadValue(std::u16string_view path, std::u16string_view name) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  const RegistryKey* k = FindClassesRoot(path);
  if (!k) return std::nullopt;
  auto it = k->values.find(std::u16string(name));
  if (it == k->values.end()) return std::nullopt;
  return it->second.AsText();
}

bool ClassStore::KeyExists(std::u16string_view path) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  return FindClassesRoot(path) != nullptr;
}

HRESULT ClassStore::OpenKey(std::u16string_view path) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  HRESULT hr;
  FindFull(path, false, hr);
  return hr;
}

HRESULT ClassStore::CreateKey(std::u16string_view path) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  HRESULT hr;
  FindFull(path, true, hr);
  return hr;
}

HRESULT ClassStore::QueryValue(std::u16string_view path, std::u16string_view name, RegistryValue& out) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  HRESULT hr;
  const RegistryKey* k = FindFull(path, false, hr);
  if (!k) return hr;
  auto it = k->values.find(std::u16string(name));
  if (it == k->values.end()) return kNotFound;
  out = it->second;
  return S_OK;
}

HRESULT ClassStore::SetValue(std::u16string_view path, std::u16string_view name, RegistryValue value) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  HRESULT hr;
  RegistryKey* k = FindFull(path, false, hr);
  if (!k) return hr;
  k->values[std::u16string(name)] = std::move(value);
  return S_OK;
}

HRESULT ClassStore::DeleteValue(std::u16string_view path, std::u16string_view name) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  HRESULT hr;
  RegistryKey* k = FindFull(path, false, hr);
  if (!k) return hr;
  return k->values.erase(std::u16string(name)) ? S_OK : kNotFound;
}

HRESULT ClassStore::DeleteKey(std::u16string_view path) {
  size_t cut = path.rfind(u'\\');
  if (cut == std::u16string_view::npos) return E_INVALIDARG;  // a root stays
  std::lock_guard<std::mutex> hold(TheStore().lock);
  HRESULT hr;
  RegistryKey* parent = FindFull(path.substr(0, cut), false, hr);
  if (!parent) return hr;
  return parent->keys.erase(std::u16string(path.substr(cut + 1))) ? S_OK : kNotFound;
}

void ClassStore::RegisterModule(const std::u16string& path, DllGetClassObjectFn entry) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  TheStore().modules[path] = entry;
}

void ClassStore::UnregisterModule(const std::u16string& path) {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  TheStore().modules.erase(path);
}

std::vector<std::u16string> ClassStore::Dump(std::u16string_view root) {
  std::vector<std::u16string> lines;
  auto walk = [&](auto&& self, const RegistryKey& k, const std::u16string& path) -> void {
    if (k.defaultValue) lines.push_back(path + u" = " + *k.defaultValue);
    for (auto& [n, v] : k.values) lines.push_back(path + u" : " + n + u" = " + DumpValue(v));
    for (auto& [n, c] : k.keys) {
      lines.push_back(path + u"\\" + n);
      self(self, c, path + u"\\" + n);
    }
  };
  std::lock_guard<std::mutex> hold(TheStore().lock);
  auto it = TheStore().roots.keys.find(std::u16string(root));
  if (it != TheStore().roots.keys.end()) walk(walk, it->second, it->first);
  return lines;
}

void ClassStore::ClearForTesting() {
  std::lock_guard<std::mutex> hold(TheStore().lock);
  TheStore().roots = RegistryKey();
}

std::u16string ModulePathOf(const void* address) {
  Dl_info info{};
  if (dladdr(address, &info) && info.dli_fname) return FromUtf8(info.dli_fname);
  return u"";
}

}  // namespace zemo

using zemo::ClassStore;
using zemo::TheStore;

namespace {

std::u16string ClsidText(REFCLSID clsid) {
  OLECHAR buf[39];
  StringFromGUID2(clsid, buf, 39);
  return buf;
}

// Classes of the platform itself. They need no registration, as on the
// platform, where they come registered with the system; keys in the store
// still take precedence.
struct BuiltinClass {
  CLSID clsid;
  const char16_t* progId;
  HRESULT (*create)(IUnknown* outer, REFIID iid, void** out);
};

const BuiltinClass kBuiltinClasses[] = {
    {CLSID_DOMDocument, u"Msxml2.DOMDocument", &zemo::CreateXmlDocumentObject},
    {CLSID_DOMDocument, u"Msxml2.DOMDocument.3.0", &zemo::CreateXmlDocumentObject},
};

class BuiltinFactory final : public zemo::Object<BuiltinFactory, IClassFactory> {
 public:
  static constexpr bool kCountsInModule = false;
  explicit BuiltinFactory(decltype(BuiltinClass::create) create) : m_create(create) {}
  HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** out) override { return m_create(outer, iid, out); }
  HRESULT LockServer(BOOL) override { return S_OK; }

 private:
  decltype(BuiltinClass::create) m_create;
};

HRESULT GetBuiltinClassObject(REFCLSID clsid, REFIID iid, void** out) {
  for (const BuiltinClass& c : kBuiltinClasses)
    if (c.clsid == clsid) return BuiltinFactory::CreateObject(iid, out, c.create);
  return REGDB_E_CLASSNOTREG;
}

}  // namespace

extern "C" {

HRESULT CLSIDFromProgID(LPCOLESTR progId, CLSID* out) {
  if (!progId || !out) return E_INVALIDARG;
  *out = GUID_NULL;
  std::u16string id(progId);
  if (id.empty() || id.find(u'\\') != std::u16string::npos) return CO_E_CLASSSTRING;
  auto text = ClassStore::ReadDefault(id + u"\\CLSID");
  if (!text) {
    for (const BuiltinClass& c : kBuiltinClasses)
      if (zemo::WideEqualNoCase(id, c.progId)) return *out = c.clsid, S_OK;
    return CO_E_CLASSSTRING;
  }
  HRESULT hr = CLSIDFromString(text->c_str(), out);
  return FAILED(hr) ? REGDB_E_READREGDB : S_OK;
}

HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  auto text = ClassStore::ReadDefault(u"CLSID\\" + ClsidText(clsid) + u"\\ProgID");
  if (!text) return REGDB_E_CLASSNOTREG;
  size_t bytes = (text->size() + 1) * sizeof(OLECHAR);
  *out = static_cast<LPOLESTR>(CoTaskMemAlloc(bytes));
  if (!*out) return E_OUTOFMEMORY;
  std::copy(text->c_str(), text->c_str() + text->size() + 1, *out);
  return S_OK;
}

HRESULT CoGetClassObject(REFCLSID clsid, DWORD context, void*, REFIID iid, void** out) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (!(context & (CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER))) return REGDB_E_CLASSNOTREG;
  auto& store = TheStore();
  zemo::ComPtr<IUnknown> hostObject;
  DllGetClassObjectFn entry = nullptr;
  {
    std::lock_guard<std::mutex> hold(store.lock);
    for (auto& c : store.classObjects)
      if (c.clsid == clsid) {
        hostObject = c.object;
        break;
      }
  }
  if (hostObject) return hostObject->QueryInterface(iid, out);
  auto server = ClassStore::ReadDefault(u"CLSID\\" + ClsidText(clsid) + u"\\InprocServer32");
  if (!server) return GetBuiltinClassObject(clsid, iid, out);
  {
    std::lock_guard<std::mutex> hold(store.lock);
    auto it = store.modules.find(*server);
    if (it != store.modules.end()) entry = it->second;
  }
  if (!entry) {
    // Modules opened here stay loaded for the life of the process.
    void* handle = dlopen(zemo::ToUtf8(*server).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) return HRESULT_FROM_WIN32(126);  // module not found
    entry = reinterpret_cast<DllGetClassObjectFn>(dlsym(handle, "DllGetClassObject"));
    if (!entry) return HRESULT_FROM_WIN32(127);  // procedure not found
    std::lock_guard<std::mutex> hold(store.lock);
    store.modules[*server] = entry;
  }
  return entry(clsid, iid, out);
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  zemo::ComPtr<IClassFactory> factory;
  HRESULT hr = CoGetClassObject(clsid, context, nullptr, IClassFactory::iid, factory.OutVoid());
  if (FAILED(hr)) return hr;
  return factory->CreateInstance(outer, iid, out);
}

HRESULT CoRegisterClassObject(REFCLSID clsid, IUnknown* factory, DWORD, DWORD, DWORD* cookie) {
  if (!factory || !cookie) return E_INVALIDARG;
  auto& store = TheStore();
  std::lock_guard<std::mutex> hold(store.lock);
  factory->AddRef();
  *cookie = store.nextCookie++;
  store.classObjects.push_back({clsid, factory, *cookie});
  return S_OK;
}

HRESULT CoRevokeClassObject(DWORD cookie) {
  IUnknown* object = nullptr;
  {
    auto& store = TheStore();
    std::lock_guard<std::mutex> hold(store.lock);
    for (auto it = store.classObjects.begin(); it != store.classObjects.end(); ++it)
      if (it->cookie == cookie) {
        object = it->object;
        store.classObjects.erase(it);
        break;
      }
  }
  if (!object) return E_INVALIDARG;
  object->Release();  // outside the store's lock: it may destroy the factory
  return S_OK;
}

HRESULT RegistrarRunScript(LPCOLESTR script, BOOL registering) {
  if (!script) return E_POINTER;
  return ClassStore::RunScript(script, {}, registering != FALSE);
}

}  // extern "C"
