/* Writes the module's five bitmap resources as .bmp files into a folder.
 *
 *   gen_bitmaps OUTPUT_DIR
 *
 * Built and run on the build machine, so it uses only standard C. The images
 * are computed with integers only: the same bytes on every machine. Each one
 * shows what the effect does: a slate-to-amber gradient picture framed by
 * aspect-ratio bars (top and bottom for the wide images, left and right for
 * the tall one). */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kFileHeaderSize = 14, kInfoHeaderSize = 40, kPaletteEntries = 256 };

typedef struct {
  unsigned id;
  int width;
  int height;
  int bits; /* 24, or 8 with a 256-entry palette */
} Bitmap;

static const Bitmap kBitmaps[] = {
    {17833, 639, 248, 24},  {17834, 639, 248, 24},  {17835, 376, 500, 8},
    {18736, 1028, 245, 24}, {18737, 1028, 245, 24},
};

typedef struct {
  int r, g, b;
} Rgb;

static const Rgb kBar = {16, 17, 20};
static const Rgb kSlate = {34, 54, 78};
static const Rgb kAmber = {226, 152, 62};
static const Rgb kEdge = {245, 214, 160};

/* Linear blend of two colours, t from 0 to den. */
static Rgb Blend(Rgb a, Rgb b, long t, long den) {
  Rgb c;
  c.r = (int)(a.r + (b.r - a.r) * t / den);
  c.g = (int)(a.g + (b.g - a.g) * t / den);
  c.b = (int)(a.b + (b.b - a.b) * t / den);
  return c;
}

static void PutU16(unsigned char *p, unsigned v) {
  p[0] = (unsigned char)(v & 0xFFu);
  p[1] = (unsigned char)((v >> 8) & 0xFFu);
}

static void PutU32(unsigned char *p, unsigned long v) {
  PutU16(p, (unsigned)(v & 0xFFFFul));
  PutU16(p + 2, (unsigned)((v >> 16) & 0xFFFFul));
}

static size_t RowStride(const Bitmap *bm) {
  return ((size_t)bm->width * (size_t)bm->bits / 8u + 3u) & ~(size_t)3u;
}

/* Colour of a 24-bit image at (x, y), y counted from the top. */
static Rgb Pixel24(const Bitmap *bm, int x, int y) {
  const int bar = bm->height / 8;
  Rgb c;
  if (y < bar || y >= bm->height - bar) return kBar;
  if (y == bar || y == bm->height - bar - 1) return kEdge;
  c = Blend(kSlate, kAmber, x, bm->width - 1);
  /* A soft vertical fall-off towards the bars. */
  {
    const int inner = bm->height - 2 * bar;
    const int from_mid = abs(2 * (y - bar) - inner);
    c = Blend(c, kBar, from_mid, (long)inner * 3);
  }
  return c;
}

/* Palette index of the 8-bit image at (x, y): 0 is the bars, 1 the edge line,
 * 2..255 a vertical gradient. */
static int Pixel8(const Bitmap *bm, int x, int y) {
  const int bar = bm->width / 10;
  if (x < bar || x >= bm->width - bar) return 0;
  if (x == bar || x == bm->width - bar - 1) return 1;
  return 2 + (int)((long)y * 253 / (bm->height - 1));
}

static Rgb PaletteColour(int index) {
  if (index == 0) return kBar;
  if (index == 1) return kEdge;
  return Blend(kSlate, kAmber, index - 2, 253);
}

static int WriteBitmap(const char *dir, const Bitmap *bm) {
  const size_t stride = RowStride(bm);
  const size_t palette = bm->bits == 8 ? (size_t)kPaletteEntries * 4u : 0u;
  const size_t image = stride * (size_t)bm->height;
  const size_t offset = kFileHeaderSize + kInfoHeaderSize + palette;
  const size_t total = offset + image;
  unsigned char *buf = calloc(total, 1);
  char path[4096];
  FILE *f;
  int y, x, i;
  size_t written;

  if (!buf) {
    fprintf(stderr, "gen_bitmaps: out of memory for bitmap %u\n", bm->id);
    return 1;
  }
  /* BITMAPFILEHEADER */
  buf[0] = 'B';
  buf[1] = 'M';
  PutU32(buf + 2, (unsigned long)total);
  PutU32(buf + 10, (unsigned long)offset);
  /* BITMAPINFOHEADER: bottom-up rows, no compression, 72 dpi. */
  PutU32(buf + 14, kInfoHeaderSize);
  PutU32(buf + 18, (unsigned long)bm->width);
  PutU32(buf + 22, (unsigned long)bm->height);
  PutU16(buf + 26, 1);
  PutU16(buf + 28, (unsigned)bm->bits);
  PutU32(buf + 30, 0);
  PutU32(buf + 34, (unsigned long)image);
  PutU32(buf + 38, 2835);
  PutU32(buf + 42, 2835);
  PutU32(buf + 46, bm->bits == 8 ? kPaletteEntries : 0);
  PutU32(buf + 50, 0);
  if (bm->bits == 8) {
    for (i = 0; i < kPaletteEntries; ++i) {
      const Rgb c = PaletteColour(i);
      unsigned char *q = buf + kFileHeaderSize + kInfoHeaderSize + 4 * i;
      q[0] = (unsigned char)c.b;
      q[1] = (unsigned char)c.g;
      q[2] = (unsigned char)c.r;
    }
  }
  for (y = 0; y < bm->height; ++y) {
    /* Rows are stored bottom-up. */
    unsigned char *row = buf + offset + stride * (size_t)(bm->height - 1 - y);
    for (x = 0; x < bm->width; ++x) {
      if (bm->bits == 8) {
        row[x] = (unsigned char)Pixel8(bm, x, y);
      } else {
        const Rgb c = Pixel24(bm, x, y);
        row[3 * x + 0] = (unsigned char)c.b;
        row[3 * x + 1] = (unsigned char)c.g;
        row[3 * x + 2] = (unsigned char)c.r;
      }
    }
  }

  if (snprintf(path, sizeof path, "%s/%u.bmp", dir, bm->id) >= (int)sizeof path) {
    fprintf(stderr, "gen_bitmaps: output folder name is too long\n");
    free(buf);
    return 1;
  }
  f = fopen(path, "wb");
  if (!f) {
    fprintf(stderr, "gen_bitmaps: cannot create %s\n", path);
    free(buf);
    return 1;
  }
  written = fwrite(buf, 1, total, f);
  free(buf);
  if (fclose(f) != 0 || written != total) {
    fprintf(stderr, "gen_bitmaps: cannot write %s\n", path);
    remove(path);
    return 1;
  }
  return 0;
}

int main(int argc, char **argv) {
  size_t i;
  if (argc != 2 || argv[1][0] == '\0') {
    fprintf(stderr, "usage: gen_bitmaps OUTPUT_DIR\n");
    return 2;
  }
  for (i = 0; i < sizeof kBitmaps / sizeof kBitmaps[0]; ++i) {
    if (WriteBitmap(argv[1], &kBitmaps[i]) != 0) return 1;
  }
  return 0;
}
