// The signed-in page: a header with the search box and sign-out, the side
// navigation (My files and the modules of js/modules.js), the current view
// and the upload panel.
import { h, clear, toast } from "./dom.js";
import { logout } from "./api.js";
import { go, filesHash } from "./router.js";
import { FilesView } from "./files-view.js";
import { SearchView, searchHash } from "./search.js";
import { Uploader } from "./upload.js";
import { moduleEntries, findModule } from "./modules.js";

export class Shell {
  constructor(root, onSignOut) {
    this.onSignOut = onSignOut;
    this.uploader = new Uploader((folder) => {
      if (this.files && this.files.path === folder) this.files.refresh();
    });
    this.files = new FilesView(this.uploader);
    this.search = new SearchView();
    this.searchInput = h("input", { type: "search", id: "search-input", name: "keyword",
      "aria-label": "Search files", placeholder: "Search files" });
    const searchForm = h("form.search-form", { role: "search" }, this.searchInput,
      h("button", { type: "submit", id: "search-submit" }, "Search"));
    searchForm.addEventListener("submit", (event) => {
      event.preventDefault();
      // A new keyword keeps the filters of the search on screen.
      const keyword = this.searchInput.value.trim();
      const filters = this.current === this.search.element ? this.search.params : null;
      if (keyword || (filters && [...filters].length)) go(searchHash(keyword, filters));
    });
    this.nav = h("nav.side-nav", { "aria-label": "Sections" }, h("ul", {},
      h("li", {}, h("a", { href: "#/files/mydrive", id: "nav-files" }, "My files")),
      moduleEntries().map((m) => h("li", {}, h("a", { href: "#/" + m.name }, m.label)))));
    const menu = h("button.menu-button", { type: "button", "aria-label": "Sections",
      "aria-expanded": "false", onclick: () => {
        const open = this.nav.classList.toggle("open");
        menu.setAttribute("aria-expanded", String(open));
      } }, "☰");
    this.main = h("main.content", { id: "content" });
    const header = h("header.top-bar", {}, menu, h("a.brand", { href: "#/files/mydrive" }, "ZemoraOrvel"),
      searchForm, h("button", { type: "button", id: "logout-button", onclick: () => this.signOut() }, "Sign out"));
    clear(root).append(header, h("div.body", {}, this.nav, this.main), this.uploader.panel);
    this.current = null;
  }

  async signOut() {
    try {
      await logout();
    } catch (err) {
      toast(err.message, "error");
    }
    this.onSignOut();
    go("#/login");
  }

  mount(element) {
    if (this.current === element) return;
    this.current = element;
    clear(this.main).append(element);
  }

  show(route) {
    this.nav.classList.remove("open");
    if (route.name === "files") {
      const path = "/" + (route.rest.length ? route.rest.join("/") : "mydrive");
      // Back from another view (the recycle bin may have put items back):
      // the same folder is listed again rather than shown as it was.
      const back = this.current !== this.files.element && this.files.path === path;
      this.mount(this.files.element);
      this.files.show(path);
      if (back) this.files.refresh();
      this.files.list.schedule();
    } else if (route.name === "search") {
      this.searchInput.value = route.rest.join("/");
      this.mount(this.search.element);
      this.search.show(route.rest.join("/"), route.params);
    } else {
      const module = findModule(route.name);
      if (!module) return go(filesHash("/mydrive"));
      const box = h("section.module-view", { "aria-label": module.label });
      this.mount(box);
      module.render(box, route);
    }
  }
}
