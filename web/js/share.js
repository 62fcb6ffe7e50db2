// The sharing dialog of one item (offered when the item's capabilities allow
// sharing): its links (create with role, expiry and password; copy the URL;
// remove) and the users it is shared with (share, unshare). The link URL
// carries the token in the fragment of s.html, so it never reaches a server
// log or a third party in a query string.
import { h, clear, toast, formatTime } from "./dom.js";
import { call } from "./api.js";

const SHARING = { api: "ZEMO.ZemoraOrvel.Sharing" };

export function linkAddress(token) {
  return new URL("s.html#" + token, location.href.replace(/#.*$/, "")).href;
}

export function canShare(item) {
  return Boolean(item && item.capabilities && item.capabilities.can_share);
}

function roleSelect(id) {
  return h("select", { id, "aria-label": "Role" },
    h("option", { value: "viewer" }, "Can view"), h("option", { value: "editor" }, "Can edit"));
}

export function openShareDialog(item) {
  const links = h("ul.share-links", { id: "share-links" });
  const people = h("ul.share-people", { id: "share-people" });
  const status = h("p", { role: "status", id: "share-status" });
  const linkRole = roleSelect("link-role");
  const expires = h("input", { type: "date", id: "link-expires", "aria-label": "Expires on" });
  const password = h("input", { type: "password", id: "link-password", autocomplete: "new-password",
    "aria-label": "Link password (optional)", placeholder: "Password (optional)" });
  const userName = h("input", { id: "share-user", "aria-label": "User name", placeholder: "User name" });
  const userRole = roleSelect("share-role");

  async function refresh() {
    const data = await call("list", { path: item.path }, SHARING);
    clear(links);
    for (const link of data.links || []) {
      const url = linkAddress(link.token);
      links.append(h("li.share-link", { dataset: { token: link.token } },
        h("input.link-url", { readonly: true, value: url, "aria-label": "Link address" }),
        ` ${link.role === "editor" ? "can edit" : "can view"}`,
        link.expires ? `, until ${formatTime(link.expires)}` : "",
        link.has_password ? ", password" : "",
        h("button.link-copy", { type: "button", onclick: async () => {
          try { await navigator.clipboard.writeText(url); toast("Link copied."); } catch {
            toast("Select the address and copy it.", "info");
          }
        } }, "Copy"),
        h("button.link-remove", { type: "button", onclick: async () => {
          await call("delete_link", { token: link.token }, SHARING);
          toast("Link removed.");
          refresh();
        } }, "Remove")));
    }
    clear(people);
    for (const share of data.shares || []) {
      people.append(h("li.share-person", { dataset: { name: share.name } },
        `${share.name} (${share.kind}, ${share.role})`,
        h("button.share-remove", { type: "button", onclick: async () => {
          await call("unshare", { path: item.path, kind: share.kind, name: share.name }, SHARING);
          refresh();
        } }, "Stop sharing")));
    }
  }

  async function createLink() {
    const params = { path: item.path, role: linkRole.value };
    if (expires.value) params.expires = Math.floor(new Date(expires.value + "T23:59:59").getTime() / 1000);
    if (password.value) params.password = password.value;
    try {
      await call("create_link", params, SHARING);
      password.value = "";
      status.textContent = "Link created.";
      await refresh();
    } catch (err) { status.textContent = err.message; }
  }

  async function shareWithUser() {
    const name = userName.value.trim();
    if (!name) return;
    try {
      await call("share", { path: item.path, kind: "user", name, role: userRole.value }, SHARING);
      userName.value = "";
      status.textContent = `Shared with ${name}.`;
      await refresh();
    } catch (err) { status.textContent = err.message; }
  }

  const dialog = h("dialog.dialog", { id: "share-dialog", "aria-labelledby": "share-title" },
    h("h2", { id: "share-title" }, `Share "${item.name}"`),
    h("h3", {}, "Links"), links,
    h("div.share-form", {}, linkRole, expires, password,
      h("button.primary", { type: "button", id: "link-create", onclick: createLink }, "Create link")),
    h("h3", {}, "People"), people,
    h("div.share-form", {}, userName, userRole,
      h("button", { type: "button", id: "share-add", onclick: shareWithUser }, "Share")),
    status,
    h("div.dialog-buttons", {}, h("button", { type: "button", id: "share-close",
      onclick: () => dialog.close() }, "Close")));
  dialog.addEventListener("close", () => dialog.remove());
  document.body.append(dialog);
  dialog.showModal();
  refresh().catch((err) => { status.textContent = err.message; });
}
