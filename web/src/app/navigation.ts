import { batch, computed, effect, signal } from "@preact/signals";
import { addressHasToken } from "../lib/token";
import type { View } from "./view";

/** The chosen view and the selected URI. The address names a view that is a page, else the selected URI. */

export const view = signal("uris");
export const selectedUri = signal("");

const pages = signal<ReadonlySet<string>>(new Set());

/** Whether a page replaces the columns of URIs and request. */
export const onPage = computed(() => pages.value.has(view.value));

function textOfHash(): string {
  const hash = location.hash.slice(1);
  try {
    return decodeURIComponent(hash);
  } catch {
    return hash;
  }
}

function followHash() {
  if (addressHasToken()) {
    location.reload();
    return;
  }
  const text = textOfHash();
  batch(() => {
    if (pages.value.has(text)) {
      view.value = text;
      return;
    }
    selectedUri.value = text;
    if (text) view.value = "request";
    else if (onPage.value) view.value = "uris";
  });
}

/** Opens the view that the address names and follows the address from then on. */
export function startNavigation(views: readonly View[]) {
  pages.value = new Set(views.filter(({ column }) => !column).map(({ id }) => id));
  followHash();
  addEventListener("hashchange", followHash);
}

export function show(next: string) {
  view.value = next;
  const hash = onPage.value ? next : selectedUri.value;
  // The live log has no address of its own: that of the selected URI or page stays.
  if (next === "live" || hash === textOfHash()) return;
  history.pushState(null, "", hash ? `#${hash}` : location.pathname);
}

effect(() => {
  document.title = selectedUri.value ? `${selectedUri.value} · dtv inspector` : "dtv inspector";
});
