/* elf_hide_version <shared library> <version>: turns the definitions that carry this symbol version
 * into non-default ones, in the file itself, as if each had been declared `name@version`.
 *
 * Only the entries of the section .gnu.version change: bit 15 means "hidden".  Running it twice is
 * harmless.  The file has to be of the kind this machine runs (class and byte order). */
#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kHidden = 0x8000, kNoVersion = 0 };

typedef struct {
  const char *path;
  unsigned char *bytes;
  size_t size;
} Image;

static _Noreturn void Fail(const Image *image, const char *what) {
  fprintf(stderr, "elf_hide_version: %s: %s\n", image->path, what);
  exit(1);
}

/* At gives the address of `size` bytes at `offset` of the file, which have to be inside it. */
static void *At(const Image *image, size_t offset, size_t size) {
  if (offset > image->size || size > image->size - offset) Fail(image, "damaged file");
  return image->bytes + offset;
}

static void Open(Image *image, const char *path) {
  image->path = path;
  const int fd = open(path, O_RDWR);
  struct stat status;
  if (fd < 0 || fstat(fd, &status) != 0) Fail(image, strerror(errno));
  image->size = (size_t)status.st_size;
  image->bytes = mmap(NULL, image->size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (image->bytes == MAP_FAILED) Fail(image, strerror(errno));
  close(fd);
}

static const ElfW(Ehdr) * Header(const Image *image) {
  const ElfW(Ehdr) *header = At(image, 0, sizeof *header);
  const int class = sizeof(void *) == 8 ? ELFCLASS64 : ELFCLASS32;
  const int order = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;
  if (memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) Fail(image, "not an ELF file");
  if (header->e_ident[EI_CLASS] != class || header->e_ident[EI_DATA] != order)
    Fail(image, "made for another kind of machine");
  return header;
}

static const ElfW(Shdr) * Section(const Image *image, unsigned index) {
  const ElfW(Ehdr) *header = Header(image);
  if (index >= header->e_shnum) Fail(image, "no such section");
  return At(image, header->e_shoff + index * sizeof(ElfW(Shdr)), sizeof(ElfW(Shdr)));
}

static const ElfW(Shdr) * SectionOfType(const Image *image, ElfW(Word) type) {
  for (unsigned i = 0; i < Header(image)->e_shnum; i++) {
    if (Section(image, i)->sh_type == type) return Section(image, i);
  }
  Fail(image, "no symbol versions");
}

/* NameAt gives a text of a string section. */
static const char *NameAt(const Image *image, const ElfW(Shdr) * strings, size_t offset) {
  if (offset >= strings->sh_size) Fail(image, "damaged file");
  const char *name = At(image, strings->sh_offset + offset, strings->sh_size - offset);
  if (!memchr(name, '\0', strings->sh_size - offset)) Fail(image, "damaged file");
  return name;
}

/* FindVersion gives the index of the version named, or kNoVersion. */
static unsigned FindVersion(const Image *image, const char *version) {
  const ElfW(Shdr) *section = SectionOfType(image, SHT_GNU_verdef);
  const ElfW(Shdr) *strings = Section(image, section->sh_link);
  size_t at = section->sh_offset;
  for (size_t i = 0; i < section->sh_info; i++) {
    const ElfW(Verdef) *def = At(image, at, sizeof *def);
    const ElfW(Verdaux) *aux = At(image, at + def->vd_aux, sizeof *aux);
    if (strcmp(NameAt(image, strings, aux->vda_name), version) == 0) return def->vd_ndx;
    at += def->vd_next;
  }
  return kNoVersion;
}

static size_t Hide(const Image *image, unsigned version) {
  const ElfW(Shdr) *section = SectionOfType(image, SHT_GNU_versym);
  const size_t count = section->sh_size / sizeof(ElfW(Half));
  ElfW(Half) *versions = At(image, section->sh_offset, section->sh_size);
  size_t numHidden = 0;
  for (size_t i = 0; i < count; i++) {
    if ((versions[i] & ~(unsigned)kHidden) != version) continue;
    versions[i] = (ElfW(Half))(version | kHidden);
    numHidden++;
  }
  return numHidden;
}

int main(int argc, char **argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: elf_hide_version <shared library> <version>\n");
    return 2;
  }
  Image image = {0};
  Open(&image, argv[1]);
  const unsigned version = FindVersion(&image, argv[2]);
  if (version == kNoVersion) Fail(&image, "does not define this version");
  /* The loader accepts the first version (index 2) even when it is hidden. */
  if (version < 3) Fail(&image, "the version to hide must not be the first one");
  if (Hide(&image, version) == 0) Fail(&image, "nothing carries this version");
  if (msync(image.bytes, image.size, MS_SYNC) != 0) Fail(&image, strerror(errno));
  return 0;
}
