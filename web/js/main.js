// Start of the web client: the sign-in page when there is no session, else
// the shell (header, navigation, the view of the current route).
import { hasSession, onSessionLost, forgetSession } from "./api.js";
import { register, setFallback, start, go, rememberLocation } from "./router.js";
import { renderLogin } from "./login.js";
import { Shell } from "./shell.js";
import { toast } from "./dom.js";
import "./plugins.js";
import { moduleEntries } from "./modules.js";

const root = document.getElementById("app");
let shell = null;

function needSession(route) {
  if (hasSession()) return false;
  rememberLocation();
  const next = location.hash && !location.hash.startsWith("#/login") ? location.hash : "";
  go("#/login" + (next ? "?next=" + encodeURIComponent(next) : ""));
  return true;
}

onSessionLost((err) => {
  if (!hasSession()) return;
  forgetSession();
  shell = null;
  rememberLocation();
  toast("Your session has ended. Please sign in again.", "error");
  const next = location.hash || "";
  go("#/login" + (next ? "?next=" + encodeURIComponent(next) : ""));
});

register("login", (route) => {
  shell = null;
  renderLogin(root, route);
});

function withShell(route) {
  if (needSession(route)) return;
  if (!shell) shell = new Shell(root, () => { shell = null; });
  shell.show(route);
}

for (const name of ["files", "search", ...moduleEntries().map((m) => m.name)]) {
  register(name, withShell);
}
setFallback((route) => {
  if (route.name === "" && !hasSession()) return go("#/login");
  go("#/files/mydrive");
});

window.addEventListener("unhandledrejection", (event) => {
  const err = event.reason;
  event.preventDefault();
  // Aborted requests say nothing; a lost session already said so.
  if (err && (err.name === "AbortError" || err.sessionLost)) return;
  toast(err && err.message ? err.message : "Something went wrong.", "error");
});

start();
