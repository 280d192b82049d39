import { AccessNotice } from "../../app/access-notice";
import { controllable, usePolling } from "../../app/commands";
import { access } from "../../app/session";
import { sizeText } from "../../lib/measures";
import { IconButton } from "../../ui/icon-button";
import { ClearIcon, ServerIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { NowPlaying } from "../player/now-playing";
import {
  cancelDownload,
  changeRenderer,
  changeServers,
  download,
  downloads,
  listing,
  opened,
  openServer,
  pauseMs,
  problem,
  readServers,
  renderer,
  searching,
  servers,
  type Download,
  type Renderer,
  type Server,
} from "./home-network";
import { ServerFiles } from "./server-files";
import { label } from "./words";
import "./home-network.css";

export function HomeNetworkPanel() {
  const readProblem = usePolling(readServers, pauseMs);
  const known = servers.value;
  const server = known?.find(({ id }) => id === opened.value);
  return (
    <main class="panel home-network" aria-label={label("IDS_HOME_NETWORK")}>
      <div class="home-head">
        <h1>{label("IDS_HOME_NETWORK")}</h1>
        <AccessNotice when="look" />
        {access.value === "control" && (
          <>
            <div class="home-switches">
              <label class="switch">
                <input
                  type="checkbox"
                  role="switch"
                  checked={searching.value}
                  disabled={!controllable.value || !known}
                  onChange={(event) => void changeServers("search", event.currentTarget.checked ? "on" : "off")}
                />
                <span>{label("IDS_SEARCH_SERVERS")}</span>
              </label>
              {renderer.value && <RendererSwitch renderer={renderer.value} />}
            </div>
            {known && known.length === 0 && <p class="empty">{label("IDS_NO_SERVERS")}</p>}
            {known && known.length > 0 && (
              <ul class="framed servers" aria-label={label("IDS_SERVERS")}>
                {known.map((each) => (
                  <ServerRow key={each.id} server={each} />
                ))}
              </ul>
            )}
            {download.value && <DownloadLine download={download.value} />}
          </>
        )}
        <Problem text={problem.value || readProblem.value || listing.value?.problem.value || ""} />
      </div>
      {access.value === "control" && server && <ServerFiles server={server} />}
      <NowPlaying />
    </main>
  );
}

const rendererStates: Readonly<Record<string, Parameters<typeof label>[0]>> = {
  playing: "IDS_PLAYING",
  paused: "IDS_PAUSED",
  stopped: "IDS_STOP",
};

function RendererSwitch({ renderer: { on, name, application, controller, url, title, state = "" } }: { renderer: Renderer }) {
  const word = rendererStates[state.toLowerCase()];
  return (
    <>
      <label class="switch">
        <input
          type="checkbox"
          role="switch"
          checked={on}
          disabled={!controllable.value}
          onChange={(event) => void changeRenderer(event.currentTarget.checked)}
        />
        <span>{label("IDS_RENDERER")}</span>
      </label>
      {(on || application) && (
        <p class="renderer-facts quiet">
          <b dir="auto">{name}</b>
          {application && <span class="badge">{label("IDS_APPLICATION_USES")}</span>}
          {controller && <span>{`${label("IDS_CONTROLLER")} ${controller}`}</span>}
          {(title || url) && <span dir="auto">{title || url}</span>}
          {word && <span class="badge">{label(word)}</span>}
        </p>
      )}
    </>
  );
}

function ServerRow({ server }: { server: Server }) {
  const { id, name, address, online, wakable } = server;
  const current = opened.value === id;
  return (
    <li class="server" data-id={id} data-current={current}>
      <button
        type="button"
        class="server-open"
        aria-expanded={current}
        onClick={() => openServer(current ? null : server)}
      >
        <ServerIcon />
        <span class="server-name" dir="auto">
          {name}
        </span>
        <span class="quiet">{address}</span>
        <span class={`badge ${online ? "good" : ""}`}>{label(online ? "IDS_ONLINE" : "IDS_OFFLINE")}</span>
      </button>
      {!online && wakable && (
        <button type="button" class="button small" onClick={() => void changeServers("wake", String(id))}>
          {label("IDS_WAKE")}
        </button>
      )}
      <IconButton label={`${label("IDS_FORGET")}: ${name}`} onClick={() => void changeServers("forget", String(id))}>
        <ClearIcon />
      </IconButton>
    </li>
  );
}

const downloadStates: Readonly<Record<string, Parameters<typeof label>[0]>> = {
  running: "IDS_DOWNLOAD",
  waiting: "IDS_DOWNLOAD",
  done: "IDS_DOWNLOADED",
  cancelled: "IDS_CANCELLED",
  failed: "IDS_FAILED",
};

function DownloadLine({ download: shown }: { download: Download }) {
  const { name, state, bytes, of, path, reason } = shown;
  const running = downloads();
  const word = downloadStates[state];
  return (
    <section class="framed download" aria-label={label("IDS_DOWNLOAD")} data-state={state}>
      <p role="status">
        <span class="badge">{word ? label(word) : state}</span> <b dir="auto">{name}</b>
      </p>
      {running && <progress max={1} {...(of > 0 ? { value: bytes / of } : {})} aria-label={label("IDS_PROGRESS")} />}
      <span class="quiet">{of > 0 ? `${sizeText(bytes)} / ${sizeText(of)}` : sizeText(bytes)}</span>
      {running ? (
        <button type="button" class="button small" onClick={() => void cancelDownload(shown)}>
          {label("IDS_CANCEL")}
        </button>
      ) : (
        <button type="button" class="link-button" onClick={() => (download.value = null)}>
          {label("IDS_CLOSE")}
        </button>
      )}
      {path && (
        <p class="quiet download-path">
          <code>{path}</code>
        </p>
      )}
      <Problem text={reason ?? ""} />
    </section>
  );
}
