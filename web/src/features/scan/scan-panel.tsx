import { signal } from "@preact/signals";
import { AccessNotice } from "../../app/access-notice";
import { controllable, usePolling } from "../../app/commands";
import { access } from "../../app/session";
import { AntennaIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { Worded } from "../../ui/worded";
import { channels, useChannels } from "../channels/channels";
import { listName } from "../channels/names";
import {
  antenna,
  cancelScan,
  media,
  pauseMs,
  readScan,
  scan,
  scanProblem,
  startScan,
  type Antenna,
  type Medium,
  type Scan,
} from "./scan";
import { label } from "./words";
import "./scan.css";

// Kept while another view is shown.
const medium = signal<Medium>("all");
const update = signal(false);

export function ScanPanel() {
  useChannels();
  const readProblem = usePolling(readScan, pauseMs);
  const problem = scanProblem.value || readProblem.value;
  const state = scan.value;
  const running = state?.state === "running";
  return (
    <main class="panel sheet" aria-label={label("IDS_CHANNEL_SEARCH")}>
      <h1>{label("IDS_CHANNEL_SEARCH")}</h1>
      <AccessNotice when="look" />
      {access.value === "control" && (
        <>
          {channels.value?.length === 0 && !running && <p class="hint">{label("IDS_SCAN_FIRST")}</p>}
          <fieldset class="scan-form" disabled={running || !controllable.value}>
            <div class="segments small" role="group" aria-label={label("IDS_SCAN_WHAT")}>
              {media.map((each) => (
                <button
                  type="button"
                  key={each}
                  aria-pressed={medium.value === each}
                  onClick={() => (medium.value = each)}
                >
                  {each === "all" ? label("IDS_ALL") : listName(each)}
                </button>
              ))}
            </div>
            <label class="check">
              <input
                type="checkbox"
                checked={update.value}
                onChange={(event) => (update.value = event.currentTarget.checked)}
              />
              {label("IDS_UPDATE_LISTS")}
            </label>
            <button
              type="button"
              class="button primary"
              onClick={() => void startScan(medium.peek(), update.peek())}
            >
              <AntennaIcon />
              {label("IDS_SCAN")}
            </button>
          </fieldset>
          <Problem text={problem} />
          {state && state.state !== "none" && <Progress scan={state} />}
          {antenna.value && <AntennaView antenna={antenna.value} />}
        </>
      )}
    </main>
  );
}

function Progress({ scan: state }: { scan: Scan }) {
  const running = state.state === "running";
  const { percent = 0, multiplex = 0, multiplexes = 0, services = 0, at, mhz, strength = 0, quality = 0 } = state;
  return (
    <section class="framed scan-progress" aria-label={label("IDS_PROGRESS")} data-state={state.state}>
      <div class="scan-bar">
        <progress max={100} value={percent} aria-label={label("IDS_PROGRESS")} />
        <span class="scan-percent">{percent} %</span>
        {running && (
          <button type="button" class="button small scan-cancel" onClick={() => void cancelScan()}>
            {label("IDS_CANCEL")}
          </button>
        )}
      </div>
      <p role="status">{outcomeOf(state)}</p>
      <dl class="scan-facts">
        <Fact name={label("IDS_MULTIPLEX")} value={label("IDS_PART_OF", multiplex, multiplexes)} />
        <Fact name={label("IDS_SERVICES_FOUND")} value={String(services)} />
        {running && at !== undefined && <Fact name={label("IDS_FREQUENCY")} value={`${listName(at)}, ${mhz} MHz`} />}
        {running && at !== undefined && (
          <Fact
            name={label("IDS_SIGNAL")}
            value={strength === 0 ? label("IDS_NO_SIGNAL") : label("IDS_SIGNAL_QUALITY", strength, quality)}
          />
        )}
        <Fact name={label("IDS_TIME")} value={label("IDS_SECONDS", state.seconds ?? 0)} />
      </dl>
      {(state.messages ?? []).length > 0 && (
        <ul class="scan-messages" aria-label={label("IDS_MESSAGES")}>
          {state.messages?.map((text, index) => <li key={index}>{text}</li>)}
        </ul>
      )}
    </section>
  );
}

const Fact = ({ name, value }: { name: string; value: string }) => (
  <div>
    <dt>{name}</dt>
    <dd>{value}</dd>
  </div>
);

function outcomeOf({ state, services, added = 0, changed = 0, removed = 0 }: Scan): string {
  switch (state) {
    case "running":
      return label("IDS_SCAN_CHANNELS");
    case "cancelled":
      return label("IDS_SCAN_CANCELLED");
    case "failed":
      return label("IDS_SCAN_FAILED");
    default:
      return services ? label("IDS_SCAN_DONE", added, changed, removed) : label("IDS_NOTHING_FOUND");
  }
}

function AntennaView({ antenna: { folder, reading, problem, multiplexes, refused, tuners } }: { antenna: Antenna }) {
  return (
    <section class="framed antenna" aria-label={label("IDS_ANTENNA")}>
      <h2>{label("IDS_ANTENNA")}</h2>
      {folder === null ? (
        <p class="empty">
          <Worded text={label("IDS_ANTENNA_HELP")} as="code" />
        </p>
      ) : (
        <p class="antenna-folder">
          <code>{folder}</code>{" "}
          {tuners.map(({ file }, index) => (
            <span key={index} class="badge">{label("IDS_TUNER", index + 1, file ?? label("IDS_FREE"))}</span>
          ))}
        </p>
      )}
      {reading && <p role="status">{label("IDS_FILE_OF", reading.file, reading.number, reading.of)}</p>}
      {problem && <p class="bad">{problem}</p>}
      {folder !== null && !reading && multiplexes.length === 0 && <p class="empty">{label("IDS_NO_MULTIPLEXES")}</p>}
      {multiplexes.length > 0 && (
        <table aria-label={label("IDS_MULTIPLEXES")}>
          <thead>
            <tr>
              <th scope="col">{label("IDS_MEDIUM")}</th>
              <th scope="col" class="figure">MHz</th>
              <th scope="col" class="wide">{label("IDS_FILE")}</th>
              <th scope="col" class="figure wide">{label("IDS_NETWORK")}</th>
              <th scope="col" class="figure wide">{label("IDS_STREAM")}</th>
              <th scope="col" class="figure">{label("IDS_SERVICES")}</th>
              <th scope="col" class="figure">{label("IDS_SIGNAL")}</th>
              <th scope="col" class="figure">{label("IDS_QUALITY")}</th>
            </tr>
          </thead>
          <tbody>
            {multiplexes.map((each) => (
              <tr key={each.file}>
                <td>{listName(each.medium)}</td>
                <td class="figure">{each.mhz}</td>
                <td class="wide antenna-file">{each.file}</td>
                <td class="figure wide">{each.network}</td>
                <td class="figure wide">{each.stream}</td>
                <td class="figure">{each.services}</td>
                <td class="figure">{each.strength} %</td>
                <td class="figure">{each.quality} %</td>
              </tr>
            ))}
          </tbody>
        </table>
      )}
      {refused.length > 0 && (
        <ul class="scan-messages" aria-label={label("IDS_NOT_MULTIPLEXES")}>
          {refused.map(({ file, why }) => (
            <li key={file}>
              <code>{file}</code> {why}
            </li>
          ))}
        </ul>
      )}
    </section>
  );
}
