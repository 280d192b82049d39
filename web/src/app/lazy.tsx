import { signal } from "@preact/signals";
import type { FunctionComponent } from "preact";
import { useEffect } from "preact/hooks";
import { label } from "./language";
import { connection } from "./session";

/** Panels whose code the first view does not need. */

const loads: (() => Promise<void>)[] = [];

/** A panel whose code is loaded when it is first shown, or by `loadPanels` before. */
export function lazy(load: () => Promise<FunctionComponent>): FunctionComponent {
  const loaded = signal<FunctionComponent | null>(null);
  const failed = signal(false);
  let loading = false;

  async function start() {
    if (loading || loaded.peek()) return;
    loading = true;
    failed.value = false;
    try {
      const panel = await load();
      loaded.value = panel;
    } catch {
      failed.value = true;
    }
    loading = false;
  }

  loads.push(start);
  return function LazyPanel() {
    const state = connection.value.name;
    // Again when the connection changes: without the host there is no code.
    useEffect(() => void start(), [state]);
    const Panel = loaded.value;
    if (Panel) return <Panel />;
    return failed.value ? <NotLoaded /> : null;
  };
}

/** A host that was replaced may have another page, so it is the page that is loaded again. */
const NotLoaded = () => (
  <section class="panel">
    <p class="bad" role="alert">
      {label("IDS_NOT_CONNECTED_HOST")}{" "}
      <button type="button" class="link-button" onClick={() => location.reload()}>
        {label("IDS_RETRY")}
      </button>
    </p>
  </section>
);

/** Loads the code of all panels, so that they are there at once when they are shown. */
export const loadPanels = () => Promise.all(loads.map((load) => load()));
