import { computed, signal, type ReadonlySignal } from "@preact/signals";
import { onPage, view } from "./navigation";

/** Which of the three columns there is room for. layout.css has the same widths. */

function matches(query: string): ReadonlySignal<boolean> {
  const list = matchMedia(query);
  const ret = signal(list.matches);
  list.addEventListener("change", ({ matches }) => (ret.value = matches));
  return ret;
}

const oneColumn = matches("(max-width: 759px)");
const twoColumns = matches("(max-width: 1119px)");

/** The view whose tab is marked as chosen: the visible view; the request where several columns are visible together. */
export const shownTab = computed((): string => {
  if (onPage.value || oneColumn.value) return view.value;
  return twoColumns.value && view.value === "live" ? "live" : "request";
});
