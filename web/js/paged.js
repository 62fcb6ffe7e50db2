// Rows of a listing fetched on demand in pages ("offset"/"limit"), kept in a
// bounded cache, so a folder of any size costs the pages around the view.
export const PAGE_SIZE = 200;
const MAX_PAGES = 40;

export class PagedSource {
  // fetchPage(offset, limit) -> Promise<{items, total}>
  constructor(fetchPage, onChange, onError) {
    this.fetchPage = fetchPage;
    this.onChange = onChange;
    this.onError = onError;
    this.pages = new Map();      // page number -> items
    this.loading = new Map();    // page number -> promise
    this.total = -1;             // unknown until the first page arrives
    this.generation = 0;
  }

  reset(fetchPage) {
    if (fetchPage) this.fetchPage = fetchPage;
    this.pages.clear();
    this.loading.clear();
    this.total = -1;
    this.generation++;
  }

  get(index) {
    const page = this.pages.get(Math.floor(index / PAGE_SIZE));
    return page ? page[index % PAGE_SIZE] : undefined;
  }

  // Loads every page that rows from..to (inclusive) touch.
  ensure(from, to) {
    const first = Math.max(0, Math.floor(from / PAGE_SIZE));
    const last = Math.max(first, Math.floor(to / PAGE_SIZE));
    const waits = [];
    for (let p = first; p <= last; p++) {
      if (this.total >= 0 && p * PAGE_SIZE >= this.total) break;
      waits.push(this.load(p));
    }
    return Promise.all(waits);
  }

  load(page) {
    if (this.pages.has(page)) return Promise.resolve(this.pages.get(page));
    if (this.loading.has(page)) return this.loading.get(page);
    const generation = this.generation;
    const promise = this.fetchPage(page * PAGE_SIZE, PAGE_SIZE).then((data) => {
      if (generation !== this.generation) return [];
      this.loading.delete(page);
      this.pages.set(page, data.items || []);
      this.total = Number(data.total) || 0;
      this.evict(page);
      this.onChange();
      return data.items;
    }, (err) => {
      if (generation === this.generation) {
        this.loading.delete(page);
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
