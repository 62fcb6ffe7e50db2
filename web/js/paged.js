// Rows of a listing fetched on demand in pages ("offset"/"limit"), kept in a
// bounded cache, so a folder of any size costs the pages around the view.
export const PAGE_SIZE = 200;
const MAX_PAGES = 40;
// Page requests in flight at once. A fast scroll asks for many pages; only
// those still in view when a slot frees are fetched, so the server answers
// what the person looks at, not every page scrolled past.
const PARALLEL = 2;
const RETRY_MS = [250, 500, 1000, 2000, 4000];

export class PagedSource {
  // fetchPage(offset, limit) -> Promise<{items, total}>
  constructor(fetchPage, onChange, onError) {
    this.fetchPage = fetchPage;
    this.onChange = onChange;
    this.onError = onError;
    this.pages = new Map();      // page number -> items
    this.loading = new Map();    // page number -> promise
    this.wanted = [];            // pages in view, nearest first
    this.failures = 0;
    this.total = -1;             // unknown until the first page arrives
    this.generation = 0;
  }

  reset(fetchPage) {
    if (fetchPage) this.fetchPage = fetchPage;
    this.pages.clear();
    this.loading.clear();
    this.wanted = [];
    this.failures = 0;
    this.total = -1;
    this.generation++;
  }

  get(index) {
    const page = this.pages.get(Math.floor(index / PAGE_SIZE));
    return page ? page[index % PAGE_SIZE] : undefined;
  }

  // Asks for the pages that rows from..to (inclusive) touch; they replace
  // whatever was asked for before and load as slots free.
  ensure(from, to) {
    const first = Math.max(0, Math.floor(from / PAGE_SIZE));
    const last = Math.max(first, Math.floor(to / PAGE_SIZE));
    this.wanted = [];
    for (let p = first; p <= last; p++) {
      if (this.total >= 0 && p * PAGE_SIZE >= this.total) break;
      if (!this.pages.has(p)) this.wanted.push(p);
    }
    this.pump();
  }

  pump() {
    while (this.loading.size < PARALLEL && this.wanted.length) {
      const page = this.wanted.shift();
      if (!this.pages.has(page) && !this.loading.has(page)) this.load(page);
    }
  }

  load(page) {
    if (this.pages.has(page)) return Promise.resolve(this.pages.get(page));
    if (this.loading.has(page)) return this.loading.get(page);
    const generation = this.generation;
    const promise = this.fetchPage(page * PAGE_SIZE, PAGE_SIZE).then((data) => {
      if (generation !== this.generation) return [];
      this.loading.delete(page);
      this.failures = 0;
      this.pages.set(page, data.items || []);
      this.total = Number(data.total) || 0;
      this.evict(page);
      this.onChange();
      this.pump();
      return data.items;
    }, (err) => {
      if (generation !== this.generation) return [];
      this.loading.delete(page);
      // A busy or unreachable service is asked again a few times, then the
      // error is shown; the next scroll asks once more.
      if ((err.code === 1024 || err.code === 0) && this.failures < RETRY_MS.length) {
        setTimeout(() => { if (generation === this.generation) this.pump(); },
          RETRY_MS[this.failures++]);
        if (!this.wanted.includes(page)) this.wanted.unshift(page);
      } else {
        this.onError(err);
      }
      return [];
    });
    this.loading.set(page, promise);
    return promise;
  }

  // Drops the pages farthest from the one just loaded.
  evict(near) {
    if (this.pages.size <= MAX_PAGES) return;
    const far = [...this.pages.keys()].sort((a, b) => Math.abs(b - near) - Math.abs(a - near));
    for (const p of far.slice(0, this.pages.size - MAX_PAGES)) this.pages.delete(p);
  }

  // Every row's path for an action on many rows, loading what is missing.
  async pathsAt(indexes) {
    const pages = new Set(indexes.map((i) => Math.floor(i / PAGE_SIZE)));
    const out = [];
    for (const p of pages) await this.load(p);
    for (const i of indexes) {
      const item = this.get(i);
      if (item) out.push(item);
    }
    return out;
  }
}
