// How one item looks as a row of the list or a tile of the grid. Rows are
// reused by the virtual list, so a row is rebuilt only when what it shows
// changed (item, selection, focus, view).
import { h, clear, formatSize, formatTime } from "./dom.js";
import { linkUrl } from "./api.js";

const IMAGE = new Set(["jpg", "jpeg", "png", "gif", "webp", "tif", "tiff", "heic", "heif", "avif", "svg"]);

export function extension(name) {
  const dot = name.lastIndexOf(".");
  return dot > 0 ? name.slice(dot + 1).toLowerCase() : "";
}

export function hasThumbnail(item) {
  const ext = extension(item.name);
  return item.type !== "dir" && item.size > 0 && (IMAGE.has(ext) || ext === "pdf");
}

function icon(item) {
  const kind = item.type === "dir" ? "folder" : IMAGE.has(extension(item.name)) ? "image" : "file";
  return h("span.icon." + kind, { "aria-hidden": "true" },
    item.type === "dir" ? "" : extension(item.name).slice(0, 4));
}

function thumbnail(item) {
  const img = h("img.thumb", { alt: "", loading: "lazy", decoding: "async",
    src: linkUrl("get_thumbnail", { path: item.path, size: "medium", format: "jpg" }) });
  img.addEventListener("error", () => img.replaceWith(icon(item)));
  return img;
}

export function renderRow(el, item, index, view) {
  const selected = view.selection.isSelected(index);
  const focused = view.selection.focus === index;
  const key = item ? `${item.file_id}|${item.name}|${item.starred}|${item.modified_time}|${view.grid}` : "loading";
  el.setAttribute("aria-selected", selected ? "true" : "false");
  el.classList.toggle("selected", selected);
  el.classList.toggle("focused", focused);
  if (el.dataset.key === key) return;
  el.dataset.key = key;
  clear(el);
  if (!item) {
    el.classList.add("loading");
    el.setAttribute("aria-label", "Loading");
    el.append(h("span.name", {}, "Loading…"));
    return;
  }
  el.classList.remove("loading");
  el.dataset.path = item.path;
  el.dataset.name = item.name;
  el.dataset.type = item.type;
  const label = item.name + (item.type === "dir" ? ", folder" : ", " + formatSize(item.size)) +
    (item.starred ? ", starred" : "");
  el.setAttribute("aria-label", label);
  const star = h("span.star", { "aria-hidden": "true" }, item.starred ? "★" : "");
  if (view.grid) {
    el.append(h("div.tile-art", {}, hasThumbnail(item) ? thumbnail(item) : icon(item)),
      h("span.name", { title: item.name }, item.name), star);
    return;
  }
  el.append(icon(item), h("span.name", { title: item.name }, item.name), star,
    h("span.size", {}, item.type === "dir" ? "" : formatSize(item.size)),
    h("span.mtime", {}, formatTime(item.modified_time)));
}
