import { computed, useSignal, type ReadonlySignal, type Signal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import type { JsonObject } from "../lib/json";
import { isForbidden } from "./rpc";
import { access, connection, television, textOf } from "./session";

/** Commands of the virtual television as panels use them: sent by a button, or repeated while the panel is shown. */

/** Whether the page can send commands now. */
export const controllable = computed(() => connection.value.name === "open" && access.value === "control");

/** A missing token is no problem of one command: the page shows it through `access`. */
const problemOf = (reason: unknown): string => (isForbidden(reason) ? "" : textOf(reason));

/** Sends a command. Stores in `problem` why it failed, else an empty text. Returns the reply; null if it failed. */
export async function attempt<Reply = JsonObject>(problem: Signal<string>, ...words: string[]): Promise<Reply | null> {
  try {
    const reply = await television(...words);
    problem.value = "";
    return reply as unknown as Reply;
  } catch (reason) {
    problem.value = problemOf(reason);
    return null;
  }
}

/**
 * While the component is shown: calls `read`, and again `pauseMs()` after each call has ended. `read` and `pauseMs` must
 * not depend on the component's state. Returns why the latest call failed, else an empty text.
 */
export function usePolling(read: () => Promise<void>, pauseMs: () => number): ReadonlySignal<string> {
  const problem = useSignal("");
  const canRead = controllable.value;
  useEffect(() => {
    if (!canRead) return;
    let timer: ReturnType<typeof setTimeout> | undefined;
    let shown = true;
    async function poll() {
      if (document.visibilityState === "visible") {
        await read().then(
          () => (problem.value = ""),
          (reason: unknown) => (problem.value = problemOf(reason)),
        );
      }
      if (shown) timer = setTimeout(() => void poll(), pauseMs());
    }
    void poll();
    return () => {
      shown = false;
      clearTimeout(timer);
    };
  }, [canRead]);
  return problem;
}
