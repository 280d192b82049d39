import type { FunctionComponent, RefObject } from "preact";
import { useEffect, useMemo, useRef } from "preact/hooks";
import { lengthText, sizeText } from "../../lib/measures";
import { Breadcrumbs } from "../../ui/breadcrumbs";
import { DownloadIcon, FileIcon, FolderIcon, MusicIcon, PhotoIcon, VideoIcon } from "../../ui/icons";
import { RowList, type RowListHandle } from "../../ui/row-list";
import { SearchField } from "../../ui/search-field";
import { listing, openFolder, openListing, place, play, search, startDownload, type Item, type Server } from "./home-network";
import { label } from "./words";
import "../../ui/files.css";

const icons: Readonly<Record<Item["kind"], FunctionComponent>> = {
  folder: FolderIcon,
  photo: PhotoIcon,
  music: MusicIcon,
  video: VideoIcon,
  other: FileIcon,
};

const kindNames = {
  folder: "IDS_FOLDER",
  photo: "IDS_PHOTO",
  music: "IDS_MUSIC",
  video: "IDS_VIDEO",
  other: "IDS_FILE",
} as const;

const rowHeight = 49;
/** A typed text is searched for when so much time has passed without another letter. */
const typingMs = 400;

/** The folders and files of a server. */
export function ServerFiles({ server: { id, name } }: { server: Server }) {
  const input = useRef<HTMLInputElement>(null);
  const handle = useRef<RowListHandle>(null);
  const path = place.value;
  const object = path.at(-1)?.object ?? 0;
  const text = search.value.trim();

  useEffect(() => {
    let close = () => {};
    const timer = setTimeout(() => (close = openListing(id, object, text)), text ? typingMs : 0);
    return () => {
      clearTimeout(timer);
      close();
    };
  }, [id, object, text]);

  function keyPressed(event: KeyboardEvent) {
    if (event.key === "ArrowDown" && event.target === input.current) {
      event.preventDefault();
      handle.current?.focus(0);
    } else if (event.key === "Escape" && event.target !== input.current) {
      const parent = path.at(-2);
      event.preventDefault();
      if (search.value) search.value = "";
      else if (parent) openFolder(parent.object, parent.name);
    }
  }

  return (
    <section class="server-files" aria-label={name} onKeyDown={keyPressed}>
      <div class="server-tools">
        <Breadcrumbs
          label={label("IDS_FOLDER")}
          path={path.map((each) => ({ id: each.object, name: each.name }))}
          away={text !== ""}
          total={listing.value?.total.value ?? null}
          onOpen={openFolder}
        />
        <SearchField text={search} label={label("IDS_SEARCH")} placeholder={label("IDS_SEARCH")} input={input} />
      </div>
      <ItemList key={`${id} ${object} ${text}`} server={id} handle={handle} input={input} />
    </section>
  );
}

interface ItemListProps {
  server: number;
  handle: RefObject<RowListHandle | null>;
  input: RefObject<HTMLInputElement | null>;
}

function ItemList({ server, handle, input }: ItemListProps) {
  const current = listing.value;
  const total = current?.total.value ?? null;
  const rows = useMemo(() => Array.from({ length: total ?? 0 }, (_, row) => row), [total]);
  if (total === null) return <div />;
  return (
    <RowList
      rows={rows}
      keyOf={(row) => row}
      estimate={rowHeight}
      label={label("IDS_HOME_NETWORK")}
      handle={handle}
      onLeave={() => input.current?.focus()}
      empty={label("IDS_LIST_EMPTY")}
      render={(row, tabIndex) => <ItemRow server={server} index={row} tabIndex={tabIndex} />}
    />
  );
}

/** A row that waits for its item keeps its height and its focus. */
function ItemRow({ server, index, tabIndex }: { server: number; index: number; tabIndex: 0 | -1 }) {
  const current = listing.value;
  void current?.version.value;
  useEffect(() => current?.hold(index), [current, index]);
  const item = current?.at(index);
  const Icon = icons[item?.kind ?? "other"] ?? FileIcon;
  const about = item ? [item.artist, item.album].filter(Boolean).join(" · ") : "";
  const count = item?.kind === "folder" && item.children !== undefined ? String(item.children) : "";
  const length = item?.duration ? lengthText(item.duration) : count;
  const size = item?.size ? sizeText(item.size) : "";
  // It says what is seen on the button, in that order, and then what the icon says.
  const name = item && [item.name, about, length, size, label(kindNames[item.kind])].filter(Boolean).join(", ");

  function open() {
    if (item?.kind === "folder") openFolder(item.object, item.name);
    else if (item) void play(server, item);
  }

  return (
    <div class="server-item" data-kind={item?.kind}>
      <button
        type="button"
        class="file-open"
        tabIndex={tabIndex}
        aria-busy={!item}
        aria-label={name ?? String(index + 1)}
        onClick={open}
      >
        {item && (
          <>
            <Icon />
            <span class="file-text">
              <span class="file-title" dir="auto">
                {item.name}
              </span>{" "}
              {about && (
                <span class="file-about quiet" dir="auto">
                  {about}
                </span>
              )}
            </span>{" "}
            <span class="file-length">{length}</span> <span class="file-size quiet">{size}</span>
          </>
        )}
      </button>
      {item && item.kind !== "folder" && (
        <button
          type="button"
          class="icon-button"
          tabIndex={tabIndex}
          aria-label={`${label("IDS_DOWNLOAD")}: ${item.name}`}
          title={label("IDS_DOWNLOAD")}
          onClick={() => void startDownload(server, item)}
        >
          <DownloadIcon />
        </button>
      )}
    </div>
  );
}
