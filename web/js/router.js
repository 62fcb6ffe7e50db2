// The location lives in the URL hash ("#/files/mydrive/a%20b", "#/search/q",
// "#/login?next=..."), so a reload or a return after signing in lands where
// the person was. Views register for a first path segment.
const routes = new Map();
const RETURN_KEY = "zemo.return";

export function register(name, render) { routes.set(name, render); }

export function parse(hash = location.hash) {
  const raw = hash.replace(/^#\/?/, "");
  const [pathPart, query = ""] = raw.split("?");
  const segments = pathPart.split("/").filter((s) => s !== "").map(decodeURIComponent);
  return { name: segments[0] || "", rest: segments.slice(1), params: new URLSearchParams(query) };
}

export function filesHash(path) {
  return "#/files" + path.split("/").filter(Boolean).map(encodeURIComponent).map((s) => "/" + s).join("");
}

export function go(hash) {
  if (location.hash === hash) dispatch();
  else location.hash = hash;
}

// Where to come back to after signing in: the URL's "next", else the
// location kept in sessionStorage when the session was lost.
export function rememberLocation() {
  const here = location.hash;
  if (here && !here.startsWith("#/login")) sessionStorage.setItem(RETURN_KEY, here);
  return here;
}

export function takeReturnLocation(route) {
  const next = route.params.get("next") || sessionStorage.getItem(RETURN_KEY) || "";
  sessionStorage.removeItem(RETURN_KEY);
  return next.startsWith("#/") && !next.startsWith("#/login") ? next : "#/files/mydrive";
}

let fallback = () => {};
export function setFallback(fn) { fallback = fn; }

export function dispatch() {
  const route = parse();
  const render = routes.get(route.name);
  if (render) render(route);
  else fallback(route);
}

export function start() {
  window.addEventListener("hashchange", dispatch);
  dispatch();
}
