// The vector and matrix pools. Each pool is one zero-filled arena carved from
// its start; released blocks go onto an address-ordered circular free list
// (entered at a moving rover) and are handed out again only to a request of
// exactly the same shape. Blocks are never split or joined.
#include "base/allocate_matrix.h"

#include <cstdint>
#include <cstdlib>

#include "base/misc.h"

namespace {

const char *const MODULE = "allocate_matrix.cpp";

const size_t VPOOL_BYTES = 67108864;   // 64 MiB
const size_t MPOOL_BYTES = 100663296;  // 96 MiB
const long max_vpool_size0 = 8388608;  // in 8-byte units
const long max_mpool_size0 = 8388608;  // in 12-byte units
const size_t VPOOL_UNIT = 8;
const size_t MPOOL_UNIT = 12;

// Vector block header; 16 bytes so that the elements after it stay aligned
// for long double.
struct VecHeader {
  VecHeader *next;
  int n;
  int pad;
};
static_assert(sizeof(VecHeader) == 16, "vector header must keep 16-byte alignment");

// Matrix block header, followed by the row pointers. The element storage is
// a separate allocation made when the block is first carved.
struct MatHeader {
  MatHeader *next;
  int rows, cols;
  long double *elems;
};
static_assert(sizeof(MatHeader) == 24, "matrix header must be 24 bytes");

// Block sizes are kept multiples of 16 (vectors) and 24 (matrices): multiples
// of the pools' 8- and 12-byte units that keep every header aligned.
const size_t VBLOCK_ALIGN = 16;
const size_t MBLOCK_ALIGN = 24;

// One pool of blocks with headers H.
template <class H>
struct Pool {
  char *arena;
  size_t last;  // byte offset of the next block to carve
  H *rover;     // into the circular free list; null until the pool starts
};

Pool<VecHeader> vpool;
Pool<MatHeader> mpool;

size_t round_up(size_t x, size_t unit) { return (x + unit - 1) / unit * unit; }

VecHeader *vec_header(const long double *v) {
  return reinterpret_cast<VecHeader *>(
      const_cast<char *>(reinterpret_cast<const char *>(v)) - sizeof(VecHeader));
}

MatHeader *mat_header(long double *const *m) {
  return reinterpret_cast<MatHeader *>(
      const_cast<char *>(reinterpret_cast<const char *>(m)) - sizeof(MatHeader));
}

long double *vec_elems(VecHeader *h) {
  return reinterpret_cast<long double *>(reinterpret_cast<char *>(h) + sizeof(VecHeader));
}

long double **mat_rowptrs(MatHeader *h) {
  return reinterpret_cast<long double **>(reinterpret_cast<char *>(h) + sizeof(MatHeader));
}

size_t vec_block_size(int n) {
  return round_up(sizeof(VecHeader) + sizeof(long double) * static_cast<size_t>(n), VBLOCK_ALIGN);
}

size_t mat_block_size(int rows) {
  return round_up(sizeof(MatHeader) + sizeof(long double *) * static_cast<size_t>(rows),
                  MBLOCK_ALIGN);
}

// Makes the arena's first header the sentinel of the free list.
void start_vector_pool() {
  if (vpool.arena == nullptr) initialize_vector_pool();
  VecHeader *s = reinterpret_cast<VecHeader *>(vpool.arena);
  s->next = s;
  s->n = 0;
  vpool.rover = s;
  vpool.last = vec_block_size(0);
}

void start_matrix_pool() {
  if (mpool.arena == nullptr) initialize_matrix_pool();
  MatHeader *s = reinterpret_cast<MatHeader *>(mpool.arena);
  s->next = s;
  s->rows = s->cols = 0;
  s->elems = nullptr;
  mpool.rover = s;
  mpool.last = mat_block_size(0);
}

template <class H>
H *sentinel(const Pool<H> &pool) { return reinterpret_cast<H *>(pool.arena); }

bool same_shape(const VecHeader *h, int n, int) { return h->n == n; }
bool same_shape(const MatHeader *h, int rows, int cols) { return h->rows == rows && h->cols == cols; }

// One walk around the free list for an exact fit; the rover becomes the
// predecessor of the block taken.
template <class H>
H *take_free(Pool<H> *pool, int a, int b) {
  H *rover = pool->rover;
  H *prev = rover;
  for (H *p = rover->next;; prev = p, p = p->next) {
    if (p != sentinel(*pool) && same_shape(p, a, b)) {
      prev->next = p->next;
      pool->rover = prev;
      return p;
    }
    if (p == rover) return nullptr;
  }
}

[[noreturn]] void die_vector_pool() {
  die("Ran out of memory for vectors (allocated size: %d bytes)\n", static_cast<int>(max_vpool_size0));
}

VecHeader *carve_vector(int n) {
  size_t size = vec_block_size(n);
  size_t end = vpool.last + size;
  if (static_cast<long>(end / VPOOL_UNIT) >= max_vpool_size0 || end > VPOOL_BYTES) die_vector_pool();
  VecHeader *h = reinterpret_cast<VecHeader *>(vpool.arena + vpool.last);
  vpool.last = end;
  h->next = nullptr;
  h->n = n;
  return h;
}

MatHeader *carve_matrix(int rows, int cols) {
  size_t size = mat_block_size(rows);
  size_t end = mpool.last + size;
  if (static_cast<long>(end / MPOOL_UNIT) >= max_mpool_size0 || end > MPOOL_BYTES)
    die("Ran out of memory for matrices (allocated size: %d bytes)\n",
        static_cast<int>(max_mpool_size0));
  MatHeader *h = reinterpret_cast<MatHeader *>(mpool.arena + mpool.last);
  mpool.last = end;
  h->next = nullptr;
  h->rows = rows;
  h->cols = cols;
  size_t count = static_cast<size_t>(rows) * static_cast<size_t>(cols);
  h->elems = count > 0 ? static_cast<long double *>(
                             calloc_str0(count * sizeof(long double), MODULE, 3))
                       : nullptr;
  long double **rowp = mat_rowptrs(h);
  for (int i = 0; i < rows; i++) rowp[i] = h->elems + static_cast<size_t>(i) * cols;
  return h;
}

bool in_arena(const char *arena, size_t last, const void *block) {
  const char *b = static_cast<const char *>(block);
  return arena != nullptr && b > arena && b < arena + last;
}

// Links block b into the address-ordered free list at its place; meeting the
// block itself on the way means it was already free. `what` names the kind.
template <class H>
void link_free(Pool<H> *pool, H *b, const char *what) {
  if (pool->rover == nullptr || !in_arena(pool->arena, pool->last, b))
    die("Internal error: released a %s that is not in the pool (%p)\n", what, static_cast<void *>(b));
  H *p = pool->rover;
  for (;; p = p->next) {
    if (p == b || p->next == b) die("Internal error: double-freed a %s (%p)\n", what, static_cast<void *>(b));
    if (p < b && (b < p->next || p->next <= p)) break;
  }
  b->next = p->next;
  p->next = b;
  pool->rover = b;
}

}  // namespace

int vector_size(const long double *v) { return vec_header(v)->n; }
int matrix_rows(long double *const *m) { return mat_header(m)->rows; }
int matrix_cols(long double *const *m) { return mat_header(m)->cols; }

// Starting a pool again first releases the previous arena.
void reserve_vectors(long long count, int n) {
  if (vpool.rover == nullptr) start_vector_pool();
  long long free_blocks = 0;
  VecHeader *rover = vpool.rover;
  for (VecHeader *p = rover->next;; p = p->next) {
    if (p != sentinel(vpool) && p->n == n) free_blocks++;
    if (p == rover) break;
  }
  // A block fits while its end stays below the capacity limit.
  size_t limit = static_cast<size_t>(max_vpool_size0) * VPOOL_UNIT;
  if (limit > VPOOL_BYTES + 1) limit = VPOOL_BYTES + 1;
  size_t room = vpool.last < limit ? limit - 1 - vpool.last : 0;
  long long fresh = static_cast<long long>(room / vec_block_size(n));
  if (count > free_blocks + fresh) die_vector_pool();
}

void initialize_vector_pool() {
  if (vpool.arena != nullptr) release_vector_pool();
  vpool.arena = static_cast<char *>(calloc_str0(VPOOL_BYTES, MODULE, 1));
  vpool.last = 0;
  vpool.rover = nullptr;
}

void initialize_matrix_pool() {
  if (mpool.arena != nullptr) release_matrix_pool();
  mpool.arena = static_cast<char *>(calloc_str0(MPOOL_BYTES, MODULE, 2));
  mpool.last = 0;
  mpool.rover = nullptr;
}

void release_vector_pool() {
  free(vpool.arena);
  vpool = Pool<VecHeader>();
}

// Frees the element storage of every carved block, then the arena.
void release_matrix_pool() {
  if (mpool.arena != nullptr && mpool.last > 0) {
    size_t off = mat_block_size(0);  // past the sentinel
    while (off < mpool.last) {
      MatHeader *h = reinterpret_cast<MatHeader *>(mpool.arena + off);
      free(h->elems);
      off += mat_block_size(h->rows);
    }
  }
  free(mpool.arena);
  mpool = Pool<MatHeader>();
}

Vector alloc_vector(int n) {
  if (n < 0) die_dimension("alloc_vector");
  if (vpool.rover == nullptr) start_vector_pool();
  VecHeader *h = take_free(&vpool, n, 0);
  if (h == nullptr) h = carve_vector(n);
  h->next = nullptr;
  return vec_elems(h);
}

Matrix alloc_matrix(int rows, int cols) {
  if (rows < 0 || cols < 0) die_dimension("alloc_matrix");
  if (mpool.rover == nullptr) start_matrix_pool();
  MatHeader *h = take_free(&mpool, rows, cols);
  if (h == nullptr) h = carve_matrix(rows, cols);
  h->next = nullptr;
  return mat_rowptrs(h);
}

void release_vector0(Vector v) {
  if (v != nullptr) link_free(&vpool, vec_header(v), "vector");
}

void release_matrix0(Matrix m) {
  if (m != nullptr) link_free(&mpool, mat_header(m), "matrix");
}

size_t vector_block_bytes(int n) { return sizeof(VecHeader) + sizeof(long double) * n; }

Vector make_vector_view(void *mem, int n) {
  VecHeader *h = static_cast<VecHeader *>(mem);
  h->next = nullptr;
  h->n = n;
  h->pad = 0;
  return vec_elems(h);
}
