import { show } from "../../app/navigation";
import { faultCount, status } from "./capture";
import { label } from "./words";
import "./capture.css";

/** In the header: what is active, as a button that leads to the panel; nothing if nothing is active. */
export function CaptureBadge() {
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
        <span>
          <span class="capture-word">{label("IDS_FAULTS")} </span>
          {count}
        </span>
      )}
    </button>
  );
}
