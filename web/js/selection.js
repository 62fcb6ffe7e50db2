// Which rows of a paged list are selected. Rows are known by index (for
// ranges) and by path (what actions need). "All" is kept as a flag plus the
// exceptions, so Ctrl+A on 100,000 rows costs nothing until an action asks
// for the paths.
export class Selection {
  constructor() { this.reset(); }

  reset() {
    this.all = false;
    this.picked = new Map();   // index -> path (or, with all, the exceptions)
    this.anchor = -1;
    this.focus = -1;
  }

  isSelected(index) { return this.all !== this.picked.has(index); }

  count(total) { return this.all ? total - this.picked.size : this.picked.size; }

  // A plain click or arrow: only this row.
  only(index, path) {
    this.reset();
    this.picked.set(index, path);
    this.anchor = this.focus = index;
  }

  // Ctrl+click / Ctrl+Space: flip this row, keep the others.
  toggle(index, path) {
    if (this.picked.has(index)) this.picked.delete(index);
    else this.picked.set(index, path);
    this.anchor = this.focus = index;
  }

  // Shift+click / Shift+arrow: the range from the anchor to this row.
  // pathAt(i) gives a loaded row's path (undefined for rows not loaded yet).
  range(index, pathAt) {
    const anchor = this.anchor < 0 ? index : this.anchor;
    this.all = false;
    this.picked = new Map();
    const [from, to] = anchor <= index ? [anchor, index] : [index, anchor];
    for (let i = from; i <= to; i++) this.picked.set(i, pathAt(i));
    this.anchor = anchor;
    this.focus = index;
  }

  selectAll() {
    this.all = true;
    this.picked = new Map();
  }

  // Indexes selected, for the actions; with "all", every index below total.
  indexes(total) {
    if (!this.all) return [...this.picked.keys()].sort((a, b) => a - b);
    const out = [];
    for (let i = 0; i < total; i++) if (!this.picked.has(i)) out.push(i);
    return out;
  }
}
