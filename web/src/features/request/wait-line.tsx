import { useSignal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { label } from "./words";
import type { Waiting } from "./outcomes";

/** A wait is shown when it has lasted so long. */
const shownMs = 1000;

/** How long a request has waited for its answer, with a button that ends the wait. */
export function WaitLine({ wait }: { wait: Waiting }) {
  const now = useSignal(wait.since);
  useEffect(() => {
    const timer = setInterval(() => (now.value = performance.now()), 250);
    return () => clearInterval(timer);
  }, [wait]);
  const millis = now.value - wait.since;
  if (millis < shownMs) return null;
  return (
    <>
      <span class="quiet waiting">
        <span role="status">{label("IDS_WAITING_ANSWER")}</span> {Math.floor(millis / 1000)} s
      </span>
      <button type="button" class="button" onClick={wait.cancel}>
        {label("IDS_CANCEL")}
      </button>
    </>
  );
}
