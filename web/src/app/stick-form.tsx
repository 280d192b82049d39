import { useSignal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { LineForm } from "../ui/line-form";
import { controllable } from "./commands";
import { television } from "./session";
import { label } from "./words";

interface Place {
  /** Only folders in it can become sticks. */
  root: string;
  folders: string[];
}

interface StickFormProps {
  class: string;
  /** Returns whether the folder was inserted: the form closes then. */
  send: (folder: string) => Promise<boolean>;
  close: () => void;
}

/** Inserts a folder of the host's machine as a USB stick. Offers the folders that are beside what is typed so far. */
export function StickForm({ class: name, send, close }: StickFormProps) {
  const place = useSignal<Place | null>(null);
  // The folder whose folders are offered; empty: the root.
  const parent = useSignal("");

  useEffect(() => {
    let shown = true;
    television("stick", "folders", ...(parent.value ? [parent.value] : [])).then(
      (reply) => {
        if (shown) place.value = reply as unknown as Place;
      },
      () => undefined, // there is no such folder, so nothing to offer
    );
    return () => {
      shown = false;
    };
  }, [parent.value, controllable.value]);

  return (
    <div class="stick-form">
      <LineForm
        class={name}
        label={label("IDS_STICK_FOLDER")}
        placeholder={label("IDS_STICK_FOLDER")}
        action={label("IDS_INSERT")}
        empty={false}
        disabled={!controllable.value}
        offered={place.value?.folders ?? []}
        onText={(text) => (parent.value = text.slice(0, text.lastIndexOf("/")))}
        send={(text) => {
          const folder = text.trim();
          // A name alone is that of a folder in the root.
          return send(folder.startsWith("/") || !place.value ? folder : `${place.value.root.replace(/\/$/, "")}/${folder}`);
        }}
        close={close}
      />
      {place.value && <p class="hint">{label("IDS_STICK_ROOT", place.value.root)}</p>}
    </div>
  );
}
