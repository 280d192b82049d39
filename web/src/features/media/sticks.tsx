import { useSignal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { StickForm } from "../../app/stick-form";
import { television } from "../../app/session";
import { sizeText } from "../../lib/measures";
import { IconButton } from "../../ui/icon-button";
import { EjectIcon, PlusIcon, RefreshIcon, StickIcon } from "../../ui/icons";
import { changeSticks, folder, openFolder, scans, stickOf, type Stick } from "./media";
import { forgetThumbnails } from "./thumbnails";
import { label } from "./words";

/** The inserted sticks, of which one is chosen, and a form that inserts a folder as a stick. */
export function Sticks({ known }: { known: readonly Stick[] }) {
  const adding = useSignal(false);
  const chosen = stickOf(folder.value);
  const open = adding.value || known.length === 0;
  return (
    <section class="sticks" aria-label={label("IDS_STICKS")}>
      <div class="stick-chips">
        {known.map((stick) => (
          <button
            type="button"
            key={stick.device}
            class="button small"
            aria-pressed={stick === chosen}
            onClick={() => openFolder(stick.path)}
          >
            <StickIcon />
            <span dir="auto">{stick.label || stick.device}</span>
          </button>
        ))}
        {known.length === 0 && <p class="quiet">{label("IDS_NO_STICK")}</p>}
        {known.length > 0 && (
          <button type="button" class="button small" aria-expanded={open} onClick={() => (adding.value = !adding.value)}>
            <PlusIcon />
            {label("IDS_INSERT")}
          </button>
        )}
      </div>
      {open && (
        <StickForm
          class="stick-insert"
          send={(path) => changeSticks("stick", "insert", path)}
          close={() => (adding.value = false)}
        />
      )}
      {chosen && <StickLine stick={chosen} />}
    </section>
  );
}

/** What the set knows of the chosen stick: its scan, then what it found. */
function StickLine({ stick }: { stick: Stick }) {
  const { device, scan } = stick;
  const running = scans(stick);

  function scanAgain() {
    forgetThumbnails();
    void changeSticks("media", "scan", device);
  }

  return (
    <div class="stick-line" data-scan={scan.state}>
      {running ? <ScanBar stick={stick} /> : <Facts stick={stick} />}
      {scan.reason && <p class="bad">{scan.reason}</p>}
      <span class="stick-actions">
        {running ? (
          <button
            type="button"
            class="button small"
            onClick={() => void changeSticks("media", "scan", device, "cancel")}
          >
            {label("IDS_CANCEL")}
          </button>
        ) : (
          <IconButton label={label("IDS_SCAN_FILES")} onClick={scanAgain}>
            <RefreshIcon />
          </IconButton>
        )}
        <IconButton
          label={`${label("IDS_REMOVE")}: ${stick.label || device}`}
          onClick={() => void changeSticks("stick", "remove", device)}
        >
          <EjectIcon />
        </IconButton>
      </span>
      {!running && scan.left_out > 0 && <LeftOut device={device} count={scan.left_out} />}
    </div>
  );
}

function ScanBar({ stick: { scan } }: { stick: Stick }) {
  const { state, files, of, progress } = scan;
  return (
    <div class="stick-scan">
      <p role="status">{label(state === "waiting" ? "IDS_SCAN_WAITS" : "IDS_SCAN_RUNS")}</p>
      <progress max={1} {...(of > 0 ? { value: progress } : {})} aria-label={label("IDS_PROGRESS")} />
      <span class="quiet">{of > 0 ? `${files} / ${of}` : files}</span>
    </div>
  );
}

const ends = { cancelled: "IDS_CANCELLED", failed: "IDS_FAILED" } as const;

function Facts({ stick }: { stick: Stick }) {
  const { photos, music, videos, playlists, bytes, scan } = stick;
  const counts = [
    [photos, "IDS_PHOTOS"],
    [music, "IDS_MUSIC"],
    [videos, "IDS_VIDEOS"],
    [playlists, "IDS_PLAYLISTS"],
  ] as const;
  const facts = counts.filter(([count]) => count > 0).map(([count, name]) => `${label(name)}: ${count}`);
  const end = scan.state === "cancelled" || scan.state === "failed" ? ends[scan.state] : null;
  return (
    <p class="stick-facts quiet">
      {end && <span class="badge bad">{label(end)}</span>} {[...facts, sizeText(bytes)].join(" · ")}
    </p>
  );
}

interface Problem {
  path: string;
  why: string;
}

/** The files that the scan has left out, and why, read when they are opened. */
function LeftOut({ device, count }: { device: string; count: number }) {
  const open = useSignal(false);
  const problems = useSignal<Problem[]>([]);

  useEffect(() => {
    if (!open.value) return;
    television("media", "problems", device).then(
      (reply) => (problems.value = (reply as unknown as { problems: Problem[] }).problems),
      () => (problems.value = []),
    );
  }, [open.value, device, count]);

  return (
    <details class="stick-problems" open={open.value} onToggle={(event) => (open.value = event.currentTarget.open)}>
      <summary>{`${label("IDS_LEFT_OUT")}: ${count}`}</summary>
      <ul>
        {problems.value.map(({ path, why }) => (
          <li key={path}>
            <code>{path}</code> {why}
          </li>
        ))}
      </ul>
    </details>
  );
}
