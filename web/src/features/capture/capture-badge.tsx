import { usePolling } from "../../app/commands";
import { show, view } from "../../app/navigation";
import { token } from "../../lib/token";
import { FaultIcon } from "../../ui/icons";
import { faultCount, readCapture, status } from "./capture";
import { label } from "./words";
import "./capture.css";

const pauseMs = 3000;

/** Learns what another page or a shell has begun or ended. The panel, while it is shown, reads more often. */
function Watch() {
  usePolling(
    async () => {
      if (view.peek() !== "capture") await readCapture();
    },
    () => pauseMs,
  );
  return null;
}

/** In the header, for a page with a token: what is active. */
export const CaptureBadge = () =>
  token() === null ? null : (
    <>
      <Watch />
      <Active />
    </>
  );

/** What is active, as a button that leads to the panel; nothing if nothing is active. */
function Active() {
  const recording = status.value?.recording ?? false;
  const replays = status.value?.replay !== undefined;
  const count = faultCount.value;
  if (!recording && !replays && count === 0) return null;
  return (
    <button type="button" class="capture-badge" title={label("IDS_CAPTURE")} onClick={() => show("capture")}>
      {recording && (
        <span class="capture-runs">
          <span class="capture-dot" aria-hidden="true" />
          <span class="capture-word">{label("IDS_CAPTURE_RUNS")}</span>
        </span>
      )}
      {replays && <span>{label("IDS_CAPTURE_REPLAY")}</span>}
      {count > 0 && (
        <span class="capture-runs">
          <FaultIcon />
          <span class="capture-word">{label("IDS_FAULTS")} </span>
          {count}
        </span>
      )}
    </button>
  );
}
