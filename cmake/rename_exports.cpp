// Gives exports of a shared object names that no linker can: every linker
// reads what follows '@' in a symbol name as the symbol's version, and a
// versioned symbol is not found by dlsym under its whole name. So an export
// such as _OpenPerfMon@4 is linked as _OpenPerfMon_4 (its last '@' made
// '_'), and this program renames it in the dynamic string table and rebuilds
// the symbol hash table for the new names. The object must be linked with
// --hash-style=sysv: a GNU hash table orders the symbols by their hashes, so
// it cannot be rebuilt in place.
//
// Usage: rename_exports SHARED_OBJECT NAME...
// A NAME already in place is left as it is, so a second run changes nothing.
#include <elf.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

[[noreturn]] void Fail(const std::string& file, const std::string& why) {
  std::fprintf(stderr, "rename_exports: %s: %s\n", file.c_str(), why.c_str());
  std::exit(1);
}

uint32_t SysvHash(const char* name) {
  uint32_t h = 0;
  for (; *name; ++name) {
    h = (h << 4) + static_cast<unsigned char>(*name);
    const uint32_t g = h & 0xF0000000u;
    if (g) h ^= g >> 24;
    h &= ~g;
  }
  return h;
}

template <class Ehdr, class Shdr, class Sym, class Dyn>
void Rename(const std::string& file, std::vector<char>& image, const std::vector<std::string>& names) {
  auto at = [&](uint64_t offset, uint64_t size) {
    if (offset > image.size() || size > image.size() - offset) Fail(file, "truncated");
    return image.data() + offset;
  };
  Ehdr eh;
  std::memcpy(&eh, at(0, sizeof eh), sizeof eh);
  if (eh.e_shentsize != sizeof(Shdr)) Fail(file, "unexpected section header size");
  std::vector<Shdr> sections(eh.e_shnum);
  if (eh.e_shnum) std::memcpy(sections.data(), at(eh.e_shoff, eh.e_shnum * sizeof(Shdr)), eh.e_shnum * sizeof(Shdr));

  const Shdr* dynsym = nullptr;
  const Shdr* hash = nullptr;
  const Shdr* dynamic = nullptr;
  for (const Shdr& s : sections) {
    if (s.sh_type == SHT_DYNSYM) dynsym = &s;
    if (s.sh_type == SHT_HASH) hash = &s;
    if (s.sh_type == SHT_DYNAMIC) dynamic = &s;
    if (s.sh_type == SHT_GNU_HASH) Fail(file, "a GNU hash table: link with --hash-style=sysv");
  }
  if (!dynsym || !hash || dynsym->sh_link >= sections.size()) Fail(file, "no dynamic symbols");
  const Shdr& dynstr = sections[dynsym->sh_link];
  char* strings = at(dynstr.sh_offset, dynstr.sh_size);
  const size_t symbolCount = dynsym->sh_size / sizeof(Sym);
  std::vector<Sym> symbols(symbolCount);
  if (symbolCount) std::memcpy(symbols.data(), at(dynsym->sh_offset, symbolCount * sizeof(Sym)), symbolCount * sizeof(Sym));
  auto nameOf = [&](uint64_t offset) -> const char* {
    if (offset >= dynstr.sh_size || !std::memchr(strings + offset, 0, dynstr.sh_size - offset))
      Fail(file, "a name outside the string table");
    return strings + offset;
  };

  // Every other reference into the string table, which must not share the
  // bytes of a renamed name (the linker merges a name with another's tail).
  std::vector<uint64_t> references;
  for (size_t i = 0; i < symbolCount; ++i) references.push_back(symbols[i].st_name);
  if (dynamic) {
    std::vector<Dyn> entries(dynamic->sh_size / sizeof(Dyn));
    const size_t count = entries.size();
    if (count) std::memcpy(entries.data(), at(dynamic->sh_offset, count * sizeof(Dyn)), count * sizeof(Dyn));
    for (size_t i = 0; i < count; ++i)
      if (entries[i].d_tag == DT_NEEDED || entries[i].d_tag == DT_SONAME || entries[i].d_tag == DT_RPATH ||
          entries[i].d_tag == DT_RUNPATH)
        references.push_back(entries[i].d_un.d_val);
  }

  for (const std::string& name : names) {
    const size_t mark = name.rfind('@');
    if (mark == std::string::npos) Fail(file, name + " holds no '@'");
    std::string standIn = name;
    standIn[mark] = '_';
    size_t found = symbolCount;
    for (size_t i = 1; i < symbolCount; ++i) {
      const char* n = nameOf(symbols[i].st_name);
      if (name == n) found = symbolCount + 1;  // renamed before
      if (standIn == n && symbols[i].st_shndx != SHN_UNDEF) found = i;
    }
    if (found == symbolCount + 1) continue;
    if (found == symbolCount) Fail(file, "no exported " + standIn);
    const uint64_t start = symbols[found].st_name;
    const uint64_t end = start + standIn.size();
    for (uint64_t r : references)
      if (r != start && r <= end && r + std::strlen(nameOf(r)) >= start)
        Fail(file, standIn + " shares its bytes with another name");
    strings[start + mark] = '@';
  }

  // The hash table: nbucket, nchain, the buckets, then the chains.
  uint32_t counts[2];
  std::memcpy(counts, at(hash->sh_offset, 8), 8);
  const uint32_t buckets = counts[0];
  const uint32_t chains = counts[1];
  if (buckets == 0 || chains != symbolCount || hash->sh_size < (2 + uint64_t(buckets) + chains) * 4)
    Fail(file, "a malformed hash table");
  std::vector<uint32_t> bucket(buckets), chain(chains);
  for (uint32_t i = 1; i < chains; ++i) {
    const uint32_t b = SysvHash(nameOf(symbols[i].st_name)) % buckets;
    chain[i] = bucket[b];
    bucket[b] = i;
  }
  std::memcpy(at(hash->sh_offset + 8, buckets * 4), bucket.data(), buckets * 4);
  std::memcpy(at(hash->sh_offset + 8 + buckets * 4, uint64_t(chains) * 4), chain.data(), uint64_t(chains) * 4);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: rename_exports SHARED_OBJECT NAME...\n");
    return 2;
  }
  const std::string file = argv[1];
  std::vector<char> image;
  {
    std::ifstream in(file, std::ios::binary);
    if (!in) Fail(file, "cannot be read");
    image.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  if (image.size() < EI_NIDENT || std::memcmp(image.data(), ELFMAG, SELFMAG) != 0) Fail(file, "not an ELF object");
  if (image[EI_DATA] != ELFDATA2LSB) Fail(file, "not little-endian");
  const std::vector<std::string> names(argv + 2, argv + argc);
  if (image[EI_CLASS] == ELFCLASS64)
    Rename<Elf64_Ehdr, Elf64_Shdr, Elf64_Sym, Elf64_Dyn>(file, image, names);
  else if (image[EI_CLASS] == ELFCLASS32)
    Rename<Elf32_Ehdr, Elf32_Shdr, Elf32_Sym, Elf32_Dyn>(file, image, names);
  else
    Fail(file, "an unknown ELF class");

  std::fstream out(file, std::ios::binary | std::ios::in | std::ios::out);
  if (!out.write(image.data(), static_cast<std::streamsize>(image.size()))) Fail(file, "cannot be written");
  return 0;
}
