/* Writes the module's "PiPL" property list (resource type 'PiPL', id 16000)
 * from its identity, in the form one configuration needs:
 *
 *   gen_pipl rc|c OUTPUT NAME CATEGORY MATCH_NAME ENTRY_POINT VERSION
 *            OUT_FLAGS OUT_FLAGS2 API_MAJOR API_MINOR
 *
 *   rc  the resource statement for the Windows module: little-endian 16-bit words
 *   c   exported data for the native module, which has no resource section
 *       (PiPL_16000 and PiPL_16000_size), so tools read either module alike
 *
 * The host reads this list before it calls the module, so every length and
 * padding byte matters:
 *
 *   header      u16 format version 1, u32 reserved 0, u32 property count
 *   property    vendor code and key (four characters each, stored reversed),
 *               u32 id 0, u32 data length, data padded with zeros to 4 bytes
 *
 * Text values (length-prefixed strings, the zero-terminated entry name) count
 * their padding in the length field; the two-byte 'eINF' value does not.
 * Built and run on the build machine, so it uses only standard C. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kMaxBytes = 2048, kPropertyCount = 13, kPerLine = 12 };

typedef struct {
  unsigned char bytes[kMaxBytes];
  size_t size;
} List;

static void Fail(const char *what, const char *text) {
  fprintf(stderr, "gen_pipl: %s \"%s\"\n", what, text);
  exit(1);
}

static void Byte(List *list, unsigned long value) {
  if (list->size == kMaxBytes) Fail("property list too long at", "");
  list->bytes[list->size++] = (unsigned char)(value & 0xFFu);
}

static void Le(List *list, int width, unsigned long value) {
  int i;
  for (i = 0; i < width; ++i) Byte(list, value >> (8 * i));
}

/* A four-character code, stored in reverse order ('kind' -> "dnik"). */
static void Code(List *list, const char *code) {
  int i;
  if (strlen(code) != 4) Fail("four-character code must have 4 characters:", code);
  for (i = 3; i >= 0; --i) Byte(list, (unsigned char)code[i]);
}

/* Names go into the host's menus as single bytes: printable ASCII only. */
static void CheckText(const char *what, const char *text, size_t max_len) {
  const char *c;
  if (text[0] == '\0' || strlen(text) > max_len) Fail(what, text);
  for (c = text; *c != '\0'; ++c) {
    if (*c < ' ' || *c > '~') Fail(what, text);
  }
}

static size_t Round4(size_t n) { return (n + 3) / 4 * 4; }

/* One property: vendor '8BIM', key, id 0, the length field `counted` (with or
 * without the padding) and the data followed by zeros up to a multiple of 4. */
static void Property(List *out, const char *key, size_t counted, const List *data) {
  size_t i;
  Code(out, "8BIM");
  Code(out, key);
  Le(out, 4, 0);
  Le(out, 4, counted);
  for (i = 0; i < data->size; ++i) Byte(out, data->bytes[i]);
  for (i = data->size; i % 4 != 0; ++i) Byte(out, 0);
}

/* A property of one 16- or 32-bit number, or of two 16-bit ones. */
static void Number(List *out, const char *key, int width, unsigned long value) {
  List data = {{0}, 0};
  Le(&data, width, value);
  Property(out, key, 4, &data);
}

static void TwoNumbers(List *out, const char *key, unsigned long first, unsigned long second) {
  List data = {{0}, 0};
  Le(&data, 2, first);
  Le(&data, 2, second);
  Property(out, key, 4, &data);
}

/* A length-prefixed string; the length field counts the padding. */
static void PString(List *out, const char *key, const char *what, const char *text) {
  List data = {{0}, 0};
  const size_t n = strlen(text);
  size_t i;
  CheckText(what, text, 255);
  Byte(&data, n);
  for (i = 0; i < n; ++i) Byte(&data, (unsigned char)text[i]);
  Property(out, key, Round4(n + 1), &data);
}

static unsigned long Value(const char *what, const char *text) {
  char *end = NULL;
  const unsigned long value = strtoul(text, &end, 0);
  if (text[0] == '\0' || *end != '\0' || value > 0xFFFFFFFFul) Fail(what, text);
  return value;
}

static void Build(List *out, char **identity) {
  List props = {{0}, 0};
  List data = {{0}, 0};
  size_t i;
  /* 1: plug-in kind, an After Effects effect. */
  Code(&data, "eFKT");
  Property(&props, "kind", 4, &data);
  /* 2, 3: name and category. */
  PString(&props, "name", "effect name", identity[0]);
  PString(&props, "catg", "category", identity[1]);
  /* 4: entry function for 64-bit Windows, zero-terminated; length counts padding. */
  CheckText("entry point", identity[3], 250);
  data.size = 0;
  for (i = 0; identity[3][i] != '\0'; ++i) Byte(&data, (unsigned char)identity[3][i]);
  Byte(&data, 0);
  Property(&props, "8664", Round4(data.size), &data);
  /* 5: property list version 2.0; 6: effect API version; 7: module version. */
  TwoNumbers(&props, "ePVR", 2, 0);
  TwoNumbers(&props, "eSVR", Value("API major version", identity[7]),
             Value("API minor version", identity[8]));
  Number(&props, "eVER", 4, Value("version", identity[4]));
  /* 8: info flags, two bytes; the two padding bytes are not counted. */
  data.size = 0;
  Le(&data, 2, 0);
  Property(&props, "eINF", 2, &data);
  /* 9, 10: the out-flag words global setup also reports. */
  Number(&props, "eGLO", 4, Value("out-flags", identity[5]));
  Number(&props, "eGL2", 4, Value("out-flags2", identity[6]));
  /* 11: match name, the effect's identity in saved projects. */
  PString(&props, "eMNA", "match name", identity[2]);
  /* 12, 13: reserved host information, the same key twice: 8, then 0. */
  Number(&props, "aeFL", 4, 8);
  Number(&props, "aeFL", 4, 0);

  Le(out, 2, 1);
  Le(out, 4, 0);
  Le(out, 4, kPropertyCount);
  for (i = 0; i < props.size; ++i) Byte(out, props.bytes[i]);
}

static void WriteRc(FILE *f, const List *pipl) {
  size_t i;
  fputs("// Generated by plugin/resources/gen_pipl.c from cmake/identity.cmake.\n16000 PiPL\nBEGIN", f);
  for (i = 0; i < pipl->size; i += 2) {
    fputs(i % (2 * kPerLine) == 0 ? "\n " : "", f);
    fprintf(f, " 0x%x%s", (unsigned)(pipl->bytes[i] | pipl->bytes[i + 1] << 8),
            i + 2 < pipl->size ? "," : "");
  }
  fputs("\nEND\n", f);
}

static void WriteC(FILE *f, const List *pipl) {
  size_t i;
  fprintf(f,
          "/* Generated by plugin/resources/gen_pipl.c from cmake/identity.cmake: the\n"
          " * same bytes as the Windows resource \"PiPL\" 16000, as exported data. */\n"
          "#include <stdint.h>\n\n"
          "#define CINEBAR_PIPL_EXPORT __attribute__((visibility(\"default\")))\n\n"
          "CINEBAR_PIPL_EXPORT extern const unsigned char PiPL_16000[%lu];\n"
          "CINEBAR_PIPL_EXPORT extern const uint32_t PiPL_16000_size;\n\n"
          "const unsigned char PiPL_16000[%lu] = {",
          (unsigned long)pipl->size, (unsigned long)pipl->size);
  for (i = 0; i < pipl->size; ++i) {
    fputs(i % kPerLine == 0 ? "\n   " : "", f);
    fprintf(f, " 0x%x,", pipl->bytes[i]);
  }
  fprintf(f, "\n};\nconst uint32_t PiPL_16000_size = %luu;\n", (unsigned long)pipl->size);
}

int main(int argc, char **argv) {
  List pipl = {{0}, 0};
  FILE *f;
  int bad_form;
  if (argc != 12) {
    fprintf(stderr,
            "usage: gen_pipl rc|c OUTPUT NAME CATEGORY MATCH_NAME ENTRY_POINT VERSION OUT_FLAGS OUT_FLAGS2 "
            "API_MAJOR API_MINOR\n");
    return 2;
  }
  bad_form = strcmp(argv[1], "rc") != 0 && strcmp(argv[1], "c") != 0;
  if (bad_form) Fail("unknown form", argv[1]);
  Build(&pipl, argv + 3);
  /* A 10-byte header and values padded to 4: always whole 16-bit words. */
  if (pipl.size % 2 != 0) Fail("odd byte count", "");
  f = fopen(argv[2], "w");
  if (f == NULL) Fail("cannot create", argv[2]);
  if (argv[1][0] == 'r') {
    WriteRc(f, &pipl);
  } else {
    WriteC(f, &pipl);
  }
  if (fclose(f) != 0) {
    remove(argv[2]);
    Fail("cannot write", argv[2]);
  }
  return 0;
}
