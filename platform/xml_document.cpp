#include "platform/xml_document.h"

#include <pugixml.hpp>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/object.h"
#include "platform/stream.h"
#include "platform/strings.h"

namespace zemo {
namespace {

// The platform keeps processing instructions and comments; whitespace between
// elements goes, whitespace that is an element's whole text stays.
constexpr unsigned kParseOptions = pugi::parse_default | pugi::parse_declaration | pugi::parse_pi |
                                   pugi::parse_comments | pugi::parse_ws_pcdata_single;

// One parsed or built tree. The root's first child is a hidden element with
// an empty name, which no parsed element can have: new nodes wait in it until
// they are appended, and nodes taken out of the tree go there, so a wrapper
// never points at freed memory. A load makes a new tree; wrappers of the old
// one keep it alive.
struct Tree {
  Tree() { spare = doc.append_child(pugi::node_element); }

  // After a parse replaced the content.
  void AddSpare() { spare = doc.prepend_child(pugi::node_element); }

  // Frees the waiting nodes when no wrapper can reach them. Runs under the
  // document's lock, under which alone wrappers are made.
  void Collect() {
    if (wrappers.load(std::memory_order_acquire) == 0) spare.remove_children();
  }

  pugi::xml_document doc;
  pugi::xml_node spare;
  std::atomic<int64_t> wrappers{0};  // live node and list objects of this tree
};
using TreePtr = std::shared_ptr<Tree>;

std::u16string_view View(BSTR text) { return text ? std::u16string_view(text, SysStringLen(text)) : std::u16string_view(); }

// The XML Name production, loosely: what no serializer could write back as a
// name is refused; beyond ASCII everything passes.
bool IsXmlName(std::u16string_view s) {
  if (s.empty()) return false;
  for (size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c >= 0x80) continue;
    bool start = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_' || c == u':';
    bool rest = (c >= u'0' && c <= u'9') || c == u'-' || c == u'.';
    if (!start && !(i > 0 && rest)) return false;
  }
  return true;
}

std::string NameUtf8(BSTR name) {
  if (!IsXmlName(View(name))) AtlThrow(E_FAIL);
  return ToUtf8(View(name));
}

DOMNodeType TypeOf(pugi::xml_node n) {
  switch (n.type()) {
    case pugi::node_document: return NODE_DOCUMENT;
    case pugi::node_element: return NODE_ELEMENT;
    case pugi::node_pcdata: return NODE_TEXT;
    case pugi::node_cdata: return NODE_CDATA_SECTION;
    case pugi::node_comment: return NODE_COMMENT;
    case pugi::node_pi:
    case pugi::node_declaration: return NODE_PROCESSING_INSTRUCTION;
    default: return 10;  // document type
  }
}

std::u16string NameOf(pugi::xml_node n) {
  switch (n.type()) {
    case pugi::node_document: return u"#document";
    case pugi::node_pcdata: return u"#text";
    case pugi::node_cdata: return u"#cdata-section";
    case pugi::node_comment: return u"#comment";
    default: return FromUtf8(n.name());
  }
}

// The first visible child: the hidden element is never one.
pugi::xml_node FirstChild(const Tree& tree, pugi::xml_node n) {
  pugi::xml_node c = n.first_child();
  return c == tree.spare ? c.next_sibling() : c;
}

// A node that waits to be appended has no siblings.
pugi::xml_node NextSibling(const Tree& tree, pugi::xml_node n) {
  return n.parent() == tree.spare ? pugi::xml_node() : n.next_sibling();
}

// All text below a node in document order, without recursion: a hostile
// document may nest as deep as it likes.
std::string TextOf(const Tree& tree, pugi::xml_node node) {
  switch (node.type()) {
    case pugi::node_element:
    case pugi::node_document: break;
    case pugi::node_declaration: {
      std::string out;
      for (pugi::xml_attribute a : node.attributes()) {
        if (!out.empty()) out += ' ';
        out += a.name();
        out += "=\"";
        out += a.value();
        out += '"';
      }
      return out;
    }
    default: return node.value();
  }
  std::string out;
  pugi::xml_node cur = FirstChild(tree, node);
  while (cur) {
    if (cur.type() == pugi::node_pcdata || cur.type() == pugi::node_cdata) out += cur.value();
    if (cur.type() == pugi::node_element && cur.first_child()) {
      cur = cur.first_child();
      continue;
    }
    while (cur != node && !cur.next_sibling()) cur = cur.parent();
    if (cur == node) break;
    cur = cur.next_sibling();
  }
  return out;
}

// ---- queries -----------------------------------------------------------------

struct Step {
  bool any;
  std::string name;
};

// A relative path of element steps; "." steps stand for the node itself. False
// for anything else, which this DOM does not answer.
bool ParseQuery(std::u16string_view q, std::vector<Step>& steps) {
  size_t pos = 0;
  while (true) {
    size_t cut = q.find(u'/', pos);
    std::u16string_view part = q.substr(pos, cut == std::u16string_view::npos ? std::u16string_view::npos : cut - pos);
    while (!part.empty() && (part.front() == u' ' || part.front() == u'\t')) part.remove_prefix(1);
    while (!part.empty() && (part.back() == u' ' || part.back() == u'\t')) part.remove_suffix(1);
    if (part == u"*")
      steps.push_back({true, {}});
    else if (part != u".") {
      if (!IsXmlName(part)) return false;
      steps.push_back({false, ToUtf8(part)});
    }
    if (cut == std::u16string_view::npos) return true;
    pos = cut + 1;
  }
}

// Matches in document order, up to limit, by a depth-first walk with one
// cursor per step instead of recursion, so a path of any length is safe.
void Select(const Tree& tree, pugi::xml_node node, const std::vector<Step>& steps, size_t limit,
            std::vector<pugi::xml_node>& out) {
  if (steps.empty()) {
    out.push_back(node);
    return;
  }
  auto next = [&](pugi::xml_node n, const Step& s) {
    for (; n; n = n.next_sibling())
      if (n.type() == pugi::node_element && n != tree.spare && (s.any || s.name == n.name())) return n;
    return pugi::xml_node();
  };
  std::vector<pugi::xml_node> at(steps.size());
  size_t depth = 0;
  at[0] = next(node.first_child(), steps[0]);
  while (true) {
    if (!at[depth]) {
      if (depth == 0) return;
      --depth;
      at[depth] = next(at[depth].next_sibling(), steps[depth]);
    } else if (depth + 1 == steps.size()) {
      out.push_back(at[depth]);
      if (out.size() >= limit) return;
      at[depth] = next(at[depth].next_sibling(), steps[depth]);
    } else {
      at[depth + 1] = next(at[depth].first_child(), steps[depth + 1]);
      ++depth;
    }
  }
}

// ---- files ------------------------------------------------------------------

// A regular file's bytes, read to its end whatever size it claims; false for
// anything that can't be read (pugixml's own reader trusts the size that
// seeking reports, which is nonsense for a directory).
bool ReadWholeFile(const std::string& path, std::string& bytes) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  struct stat st {};
  bool ok = fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode);
  char chunk[65536];
  while (ok) {
    size_t n = std::fread(chunk, 1, sizeof chunk, f);
    bytes.append(chunk, n);
    if (n < sizeof chunk) {
      ok = !std::ferror(f);
      break;
    }
  }
  std::fclose(f);
  return ok;
}

// The markup of a node. Top-level nodes of a document each end a line, as
// the platform writes them.
struct StringWriter final : pugi::xml_writer {
  void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
  std::string text;
};

std::string MarkupOf(const Tree& tree, pugi::xml_node node) {
  StringWriter out;
  if (node.type() != pugi::node_document) {
    node.print(out, "", pugi::format_raw, pugi::encoding_utf8);
    return std::move(out.text);
  }
  for (pugi::xml_node n = FirstChild(tree, node); n; n = n.next_sibling()) {
    n.print(out, "", pugi::format_raw, pugi::encoding_utf8);
    out.text += "\r\n";
  }
  return std::move(out.text);
}

// ---- the objects -------------------------------------------------------------

class XmlDocument;

// What every node object tells about itself, for the operations that take
// another node as an argument.
class XmlNodeCore {
 public:
  virtual XmlDocument* Owner() noexcept = 0;
  virtual const TreePtr& NodeTree() const noexcept = 0;
  virtual pugi::xml_node Node() const noexcept = 0;

 protected:
  ~XmlNodeCore() = default;
};

// A new object for a node of the document, or S_FALSE and null for none.
HRESULT Wrap(XmlDocument* owner, const TreePtr& tree, pugi::xml_node n, REFIID iid, void** out);

template <class I>
HRESULT WrapAs(XmlDocument* owner, const TreePtr& tree, pugi::xml_node n, I** out) {
  return Wrap(owner, tree, n, IidOf<I>(), reinterpret_cast<void**>(out));
}

// The node operations, shared by documents, elements and the other nodes. All
// objects of one document share its lock, since they share its tree.
template <class D, class I>
class XmlNodeBase : public Object<D, I>, public XmlNodeCore {
 public:
  HRESULT QueryInterface(REFIID iid, void** out) override {
    if (out && iid == IXMLDOMNode::iid) {
      *out = static_cast<IXMLDOMNode*>(this);
      this->AddRef();
      return S_OK;
    }
    return Object<D, I>::QueryInterface(iid, out);
  }

  HRESULT get_nodeName(BSTR* name) override;
  HRESULT get_nodeType(DOMNodeType* type) override;
  HRESULT get_firstChild(IXMLDOMNode** child) override;
  HRESULT get_nextSibling(IXMLDOMNode** sibling) override;
  HRESULT insertBefore(IXMLDOMNode* newChild, VARIANT refChild, IXMLDOMNode** out) override;
  HRESULT appendChild(IXMLDOMNode* newChild, IXMLDOMNode** out) override;
  HRESULT get_ownerDocument(IXMLDOMDocument** document) override;
  HRESULT get_text(BSTR* text) override;
  HRESULT put_text(BSTR text) override;
  HRESULT get_xml(BSTR* xml) override;
  HRESULT selectNodes(BSTR query, IXMLDOMNodeList** result) override;
  HRESULT selectSingleNode(BSTR query, IXMLDOMNode** result) override;

 protected:
  template <class F>
  HRESULT Dom(F&& body);

 private:
  // Moves child under this node, before ref or at the end.
  void Insert(IXMLDOMNode* newChild, pugi::xml_node ref);
  std::vector<pugi::xml_node> Query(BSTR query, size_t limit);
};

// A document also persists to a stream, as its markup: a save writes what
// save writes to a file, a load parses everything from the position to the end.
class XmlDocument final : public XmlNodeBase<XmlDocument, IXMLDOMDocument>, public IPersistStream {
  using Base = XmlNodeBase<XmlDocument, IXMLDOMDocument>;

 public:
  XmlDocument() : m_tree(std::make_shared<Tree>()) {}

  HRESULT QueryInterface(REFIID iid, void** out) override {
    if (out && (iid == IPersistStream::iid || iid == IPersist::iid)) {
      *out = static_cast<IPersistStream*>(this);
      AddRef();
      return S_OK;
    }
    return Base::QueryInterface(iid, out);
  }
  ULONG AddRef() override { return Base::AddRef(); }
  ULONG Release() override { return Base::Release(); }

  // IPersistStream
  HRESULT GetClassID(CLSID* out) override {
    if (!out) return E_POINTER;
    *out = CLSID_DOMDocument;
    return S_OK;
  }
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }

  XmlDocument* Owner() noexcept override { return this; }
  const TreePtr& NodeTree() const noexcept override { return m_tree; }
  pugi::xml_node Node() const noexcept override { return m_tree->doc; }
  CObjectLock& DomLock() const noexcept { return ObjectLock(); }

  HRESULT get_documentElement(IXMLDOMElement** element) override;
  HRESULT createElement(BSTR tagName, IXMLDOMElement** element) override;
  HRESULT createProcessingInstruction(BSTR target, BSTR data, IXMLDOMNode** node) override;
  HRESULT createNode(VARIANT type, BSTR name, BSTR namespaceUri, IXMLDOMNode** node) override;
  HRESULT load(VARIANT source, VARIANT_BOOL* success) override;
  HRESULT put_async(VARIANT_BOOL async) override;
  HRESULT loadXML(BSTR xml, VARIANT_BOOL* success) override;
  HRESULT save(VARIANT destination) override;

 private:
  // A node that waits in the hidden element until it is appended.
  pugi::xml_node NewNode(pugi::xml_node_type type) {
    m_tree->Collect();
    pugi::xml_node n = m_tree->spare.append_child(type);
    if (!n) AtlThrow(E_OUTOFMEMORY);
    return n;
  }
  template <class Parse>
  HRESULT Replace(VARIANT_BOOL* success, Parse&& parse);

  TreePtr m_tree;
  VARIANT_BOOL m_async = VARIANT_TRUE;  // kept for the contract; loading is always synchronous
};

// Any node below the document: it keeps the document and its tree alive.
template <class D, class I>
class XmlChildNode : public XmlNodeBase<D, I> {
 public:
  XmlChildNode(XmlDocument* owner, TreePtr tree, pugi::xml_node node)
      : m_owner(owner), m_tree(std::move(tree)), m_node(node) {
    m_tree->wrappers.fetch_add(1, std::memory_order_relaxed);
  }
  ~XmlChildNode() { m_tree->wrappers.fetch_sub(1, std::memory_order_acq_rel); }

  XmlDocument* Owner() noexcept override { return m_owner.Get(); }
  const TreePtr& NodeTree() const noexcept override { return m_tree; }
  pugi::xml_node Node() const noexcept override { return m_node; }

 private:
  ComPtr<XmlDocument> m_owner;
  TreePtr m_tree;
  pugi::xml_node m_node;
};

class XmlLeaf final : public XmlChildNode<XmlLeaf, IXMLDOMNode> {
 public:
  using XmlChildNode::XmlChildNode;
};

class XmlElement final : public XmlChildNode<XmlElement, IXMLDOMElement> {
 public:
  using XmlChildNode::XmlChildNode;

  HRESULT get_tagName(BSTR* tagName) override {
    return Dom([&] {
      CheckOut(tagName);
      *tagName = AllocBstr(FromUtf8(Node().name()));
    });
  }

  HRESULT getAttribute(BSTR name, VARIANT* value) override {
    return Dom([&]() -> HRESULT {
      CheckOut(value);
      VariantInit(value);
      pugi::xml_attribute a = Node().attribute(ToUtf8(View(name)).c_str());
      if (!a) {
        value->vt = VT_NULL;
        return S_FALSE;
      }
      value->bstrVal = AllocBstr(FromUtf8(a.value()));
      value->vt = VT_BSTR;
      return S_OK;
    });
  }

  HRESULT setAttribute(BSTR name, VARIANT value) override {
    return Dom([&] {
      std::string n = NameUtf8(name);
      CVariant text;
      CheckHr(VariantChangeType(&text, &value, 0, VT_BSTR));
      pugi::xml_attribute a = Node().attribute(n.c_str());
      if (!a) a = Node().append_attribute(n.c_str());
      if (!a || !a.set_value(ToUtf8(text.bstrVal ? View(text.bstrVal) : u"").c_str())) AtlThrow(E_OUTOFMEMORY);
    });
  }
};

class XmlNodeList final : public Object<XmlNodeList, IXMLDOMNodeList> {
 public:
  XmlNodeList(XmlDocument* owner, TreePtr tree, std::vector<pugi::xml_node> nodes)
      : m_owner(owner), m_tree(std::move(tree)), m_nodes(std::move(nodes)) {
    m_tree->wrappers.fetch_add(1, std::memory_order_relaxed);
  }
  ~XmlNodeList() { m_tree->wrappers.fetch_sub(1, std::memory_order_acq_rel); }

  HRESULT get_item(LONG index, IXMLDOMNode** node) override {
    std::lock_guard<CObjectLock> hold(m_owner->DomLock());
    return Boundary([&]() -> HRESULT {
      CheckOut(node);
      if (index < 0 || static_cast<size_t>(index) >= m_nodes.size()) return S_FALSE;
      return WrapAs(m_owner.Get(), m_tree, m_nodes[static_cast<size_t>(index)], node);
    });
  }

  HRESULT get_length(LONG* length) override {
    return Unlocked([&] {
      CheckOut(length);
      *length = static_cast<LONG>(m_nodes.size());
    });
  }

 private:
  ComPtr<XmlDocument> m_owner;
  TreePtr m_tree;
  std::vector<pugi::xml_node> m_nodes;
};

HRESULT Wrap(XmlDocument* owner, const TreePtr& tree, pugi::xml_node n, REFIID iid, void** out) {
  *out = nullptr;
  if (!n) return S_FALSE;
  if (n.type() == pugi::node_document) {
    // The document of a tree that a load has replaced is gone.
    if (tree != owner->NodeTree()) return E_FAIL;
    return owner->QueryInterface(iid, out);
  }
  if (n.type() == pugi::node_element) return XmlElement::CreateObject(iid, out, owner, tree, n);
  return XmlLeaf::CreateObject(iid, out, owner, tree, n);
}

// ---- node operations -------------------------------------------------------

template <class D, class I>
template <class F>
HRESULT XmlNodeBase<D, I>::Dom(F&& body) {
  std::lock_guard<CObjectLock> hold(Owner()->DomLock());
  return Boundary(std::forward<F>(body));
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::get_nodeName(BSTR* name) {
  return Dom([&] {
    CheckOut(name);
    *name = AllocBstr(NameOf(Node()));
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::get_nodeType(DOMNodeType* type) {
  return Dom([&] {
    CheckOut(type);
    *type = TypeOf(Node());
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::get_firstChild(IXMLDOMNode** child) {
  return Dom([&] {
    CheckOut(child);
    return WrapAs(Owner(), NodeTree(), FirstChild(*NodeTree(), Node()), child);
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::get_nextSibling(IXMLDOMNode** sibling) {
  return Dom([&] {
    CheckOut(sibling);
    if (Node().type() == pugi::node_document) return S_FALSE;
    return WrapAs(Owner(), NodeTree(), NextSibling(*NodeTree(), Node()), sibling);
  });
}

template <class D, class I>
void XmlNodeBase<D, I>::Insert(IXMLDOMNode* newChild, pugi::xml_node ref) {
  auto* other = dynamic_cast<XmlNodeCore*>(newChild);
  if (!other) AtlThrow(newChild ? E_INVALIDARG : E_POINTER);
  // Nodes move only inside their own tree: not between documents, nor out
  // of a tree that a load has replaced.
  if (other->Owner() != Owner() || other->NodeTree() != NodeTree()) AtlThrow(E_INVALIDARG);
  pugi::xml_node parent = Node();
  pugi::xml_node child = other->Node();
  if (child.type() == pugi::node_document) AtlThrow(E_INVALIDARG);
  if (parent.type() == pugi::node_document) {
    // The document holds one element and no text.
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) AtlThrow(E_FAIL);
    if (child.type() == pugi::node_element)
      for (pugi::xml_node n = FirstChild(*NodeTree(), parent); n; n = n.next_sibling())
        if (n.type() == pugi::node_element && n != child) AtlThrow(E_FAIL);
  }
  if (ref == child) return;
  pugi::xml_node moved = ref ? parent.insert_move_before(child, ref) : parent.append_move(child);
  // pugixml refuses a child under a leaf and a node under its own subtree.
  if (!moved) AtlThrow(E_FAIL);
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::insertBefore(IXMLDOMNode* newChild, VARIANT refChild, IXMLDOMNode** out) {
  return Dom([&] {
    if (out) *out = nullptr;
    pugi::xml_node ref;
    if (refChild.vt == VT_UNKNOWN || refChild.vt == VT_DISPATCH) {
      if (refChild.punkVal) {
        ComPtr<IXMLDOMNode> refNode;
        CheckHr(refChild.punkVal->QueryInterface(IXMLDOMNode::iid, refNode.OutVoid()));
        auto* core = dynamic_cast<XmlNodeCore*>(refNode.Get());
        if (!core || core->NodeTree() != NodeTree() || core->Node().parent() != Node()) AtlThrow(E_INVALIDARG);
        ref = core->Node();
      }
    } else if (refChild.vt != VT_EMPTY && refChild.vt != VT_NULL) {
      AtlThrow(E_INVALIDARG);
    }
    Insert(newChild, ref);
    if (out) ComPtr<IXMLDOMNode>(newChild).CopyTo(out);
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::appendChild(IXMLDOMNode* newChild, IXMLDOMNode** out) {
  return Dom([&] {
    if (out) *out = nullptr;
    Insert(newChild, pugi::xml_node());
    if (out) ComPtr<IXMLDOMNode>(newChild).CopyTo(out);
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::get_ownerDocument(IXMLDOMDocument** document) {
  return Dom([&]() -> HRESULT {
    CheckOut(document);
    if (Node().type() == pugi::node_document) return S_FALSE;  // a document has no owner
    return Owner()->QueryInterface(IXMLDOMDocument::iid, reinterpret_cast<void**>(document));
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::get_text(BSTR* text) {
  return Dom([&]() -> HRESULT {
    CheckOut(text);
    *text = AllocBstr(FromUtf8(TextOf(*NodeTree(), Node())));
    // An element without text answers S_FALSE: a reader that needs text
    // takes it as missing.
    return SysStringLen(*text) == 0 && Node().type() == pugi::node_element ? S_FALSE : S_OK;
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::put_text(BSTR text) {
  return Dom([&] {
    pugi::xml_node n = Node();
    std::string value = ToUtf8(View(text));
    switch (n.type()) {
      case pugi::node_element: {
        Tree& tree = *NodeTree();
        // Into the hidden element: objects of the old children may live on.
        while (pugi::xml_node c = n.first_child()) tree.spare.append_move(c);
        if (!value.empty() && !n.append_child(pugi::node_pcdata).set_value(value.c_str())) AtlThrow(E_OUTOFMEMORY);
        break;
      }
      case pugi::node_pcdata:
      case pugi::node_cdata:
      case pugi::node_comment:
      case pugi::node_pi:
        if (!n.set_value(value.c_str())) AtlThrow(E_OUTOFMEMORY);
        break;
      default: AtlThrow(E_FAIL);  // the document, a declaration
    }
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::get_xml(BSTR* xml) {
  return Dom([&] {
    CheckOut(xml);
    *xml = AllocBstr(FromUtf8(MarkupOf(*NodeTree(), Node())));
  });
}

template <class D, class I>
std::vector<pugi::xml_node> XmlNodeBase<D, I>::Query(BSTR query, size_t limit) {
  std::vector<Step> steps;
  if (!ParseQuery(View(query), steps)) AtlThrow(E_FAIL);
  std::vector<pugi::xml_node> found;
  Select(*NodeTree(), Node(), steps, limit, found);
  return found;
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::selectNodes(BSTR query, IXMLDOMNodeList** result) {
  return Dom([&] {
    CheckOut(result);
    CheckHr(XmlNodeList::CreateObject(IXMLDOMNodeList::iid, reinterpret_cast<void**>(result), Owner(), NodeTree(),
                                      Query(query, SIZE_MAX)));
  });
}

template <class D, class I>
HRESULT XmlNodeBase<D, I>::selectSingleNode(BSTR query, IXMLDOMNode** result) {
  return Dom([&] {
    CheckOut(result);
    std::vector<pugi::xml_node> found = Query(query, 1);
    if (found.empty()) return S_FALSE;
    return WrapAs(Owner(), NodeTree(), found.front(), result);
  });
}

// ---- document operations ---------------------------------------------------

HRESULT XmlDocument::get_documentElement(IXMLDOMElement** element) {
  return Dom([&] {
    CheckOut(element);
    for (pugi::xml_node n = FirstChild(*m_tree, m_tree->doc); n; n = n.next_sibling())
      if (n.type() == pugi::node_element) return WrapAs(this, m_tree, n, element);
    return S_FALSE;
  });
}

HRESULT XmlDocument::createElement(BSTR tagName, IXMLDOMElement** element) {
  return Dom([&] {
    CheckOut(element);
    std::string name = NameUtf8(tagName);
    pugi::xml_node n = NewNode(pugi::node_element);
    n.set_name(name.c_str());
    return WrapAs(this, m_tree, n, element);
  });
}

HRESULT XmlDocument::createProcessingInstruction(BSTR target, BSTR data, IXMLDOMNode** node) {
  return Dom([&] {
    CheckOut(node);
    std::string name = NameUtf8(target);
    pugi::xml_node n = NewNode(pugi::node_pi);
    n.set_name(name.c_str());
    n.set_value(ToUtf8(View(data)).c_str());
    return WrapAs(this, m_tree, n, node);
  });
}

HRESULT XmlDocument::createNode(VARIANT type, BSTR name, BSTR, IXMLDOMNode** node) {
  return Dom([&] {
    CheckOut(node);
    CVariant kind;
    CheckHr(VariantChangeType(&kind, &type, 0, VT_I4));
    pugi::xml_node n;
    switch (kind.lVal) {
      case NODE_ELEMENT: {
        std::string tag = NameUtf8(name);
        n = NewNode(pugi::node_element);
        n.set_name(tag.c_str());
        break;
      }
      case NODE_TEXT: n = NewNode(pugi::node_pcdata); break;
      case NODE_PROCESSING_INSTRUCTION: {
        std::string target = NameUtf8(name);
        n = NewNode(pugi::node_pi);
        n.set_name(target.c_str());
        break;
      }
      default: AtlThrow(E_INVALIDARG);
    }
    return WrapAs(this, m_tree, n, node);
  });
}

template <class Parse>
HRESULT XmlDocument::Replace(VARIANT_BOOL* success, Parse&& parse) {
  *success = VARIANT_FALSE;
  auto tree = std::make_shared<Tree>();
  bool ok = parse(tree->doc);
  if (ok) {
    // One document element, as the platform demands; pugixml would take more.
    int elements = 0;
    for (pugi::xml_node n : tree->doc.children()) elements += n.type() == pugi::node_element;
    ok = elements == 1;
  }
  if (ok)
    tree->AddSpare();
  else
    tree = std::make_shared<Tree>();
  m_tree = std::move(tree);
  *success = ok ? VARIANT_TRUE : VARIANT_FALSE;
  return ok ? S_OK : S_FALSE;
}

HRESULT XmlDocument::load(VARIANT source, VARIANT_BOOL* success) {
  return Dom([&] {
    CheckOut(success);
    if (source.vt != VT_BSTR) AtlThrow(E_INVALIDARG);
    std::string bytes;
    bool read = ReadWholeFile(ToUtf8(View(source.bstrVal)), bytes);
    return Replace(success, [&](pugi::xml_document& doc) {
      return read && doc.load_buffer(bytes.data(), bytes.size(), kParseOptions, pugi::encoding_auto);
    });
  });
}

HRESULT XmlDocument::put_async(VARIANT_BOOL async) {
  return Dom([&] { m_async = async; });
}

HRESULT XmlDocument::loadXML(BSTR xml, VARIANT_BOOL* success) {
  return Dom([&] {
    CheckOut(success);
    std::string text = ToUtf8(View(xml));
    return Replace(success, [&](pugi::xml_document& doc) {
      return static_cast<bool>(doc.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_utf8));
    });
  });
}

HRESULT XmlDocument::Load(IStream* stream) {
  return Dom([&]() -> HRESULT {
    if (!stream) return E_POINTER;
    std::string bytes;
    char chunk[65536];
    for (;;) {
      ULONG read = 0;
      HRESULT hr = stream->Read(chunk, sizeof chunk, &read);
      if (FAILED(hr)) return hr;
      bytes.append(chunk, read);
      if (read < sizeof chunk) break;
    }
    VARIANT_BOOL loaded = VARIANT_FALSE;
    Replace(&loaded, [&](pugi::xml_document& doc) {
      return static_cast<bool>(doc.load_buffer(bytes.data(), bytes.size(), kParseOptions, pugi::encoding_auto));
    });
    return loaded ? S_OK : E_FAIL;
  });
}

HRESULT XmlDocument::Save(IStream* stream, BOOL) {
  return Dom([&]() -> HRESULT {
    if (!stream) return E_POINTER;
    std::string text = MarkupOf(*m_tree, m_tree->doc);
    for (size_t at = 0; at < text.size();) {
      const ULONG want = static_cast<ULONG>(std::min<size_t>(text.size() - at, 1u << 30));
      ULONG written = 0;
      HRESULT hr = stream->Write(text.data() + at, want, &written);
      if (FAILED(hr)) return hr;
      if (written == 0) return STG_E_MEDIUMFULL;
      at += written;
    }
    return S_OK;
  });
}

HRESULT XmlDocument::save(VARIANT destination) {
  return Dom([&]() -> HRESULT {
    if (destination.vt != VT_BSTR) AtlThrow(E_INVALIDARG);
    std::string path = ToUtf8(View(destination.bstrVal));
    std::string text = MarkupOf(*m_tree, m_tree->doc);
    errno = 0;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return HresultFromErrno(errno);
    int err = 0;
    if (std::fwrite(text.data(), 1, text.size(), f) != text.size()) err = errno ? errno : EIO;
    if (std::fclose(f) != 0 && err == 0) err = errno ? errno : EIO;
    return err ? HresultFromErrno(err) : S_OK;
  });
}

}  // namespace

HRESULT CreateXmlDocumentObject(IUnknown* outer, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (outer) return CLASS_E_NOAGGREGATION;
  return XmlDocument::CreateObject(iid, out);
}

}  // namespace zemo
