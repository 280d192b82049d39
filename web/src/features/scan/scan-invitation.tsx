import { show } from "../../app/navigation";
import { AntennaIcon } from "../../ui/icons";
import { startScan } from "./scan";
import { label } from "./words";
import "./scan.css";

/** What a panel shows while the channel list is empty. The button starts a scan and shows its progress. */
export function ScanInvitation() {
  function scanNow() {
    show("scan");
    void startScan("all", false);
  }
  return (
    <p class="scan-invitation">
      <span>{label("IDS_SCAN_FIRST")}</span>
      <button type="button" class="button primary" onClick={scanNow}>
        <AntennaIcon />
        {label("IDS_SCAN")}
      </button>
    </p>
  );
}
