<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name>CalibrationPanel</name>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="+67"/>
        <source>Calibration</source>
        <translation>Calibration</translation>
    </message>
    <message>
        <location line="+29"/>
        <source>Camera</source>
        <translation>Caméra</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Shared
frames</source>
        <translation>Images
partagées</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Residual
±1σ</source>
        <translation>Résidu
±1σ</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>State</source>
        <translation>État</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Shared frames: frames in which this camera and another one saw the same person. Residual: distance between matching joints after the solve. Uncertainty: one standard deviation of the camera&apos;s rotation and position, bias and model error included (two halves of the walk are solved apart and compared). Clock: the camera&apos;s clock minus the first camera&apos;s, found from how people move, with one standard deviation.</source>
        <translation>Images partagées : images où cette caméra et une autre ont vu la même personne. Résidu : distance entre les articulations appariées après la résolution. Incertitude : un écart type de la rotation et de la position de la caméra, biais et erreur de modèle compris (les deux moitiés de la marche sont résolues à part puis comparées). Horloge : l&apos;horloge de la caméra moins celle de la première caméra, déduite de la façon dont les gens bougent, avec un écart type.</translation>
    </message>
    <message>
        <location line="+53"/>
        <source>Matching each person across the cameras; moments held: %1, counted as frames once the cameras agree</source>
        <translation>Appariement de chaque personne entre les caméras ; moments retenus : %1, comptés comme images dès que les caméras concordent</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>%1 frames collected, %2 used by the last solve</source>
        <translation>%1 images collectées, %2 utilisées par la dernière résolution</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>; re-seeding %1</source>
        <translation> ; replacement de %1</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>In view: %1</source>
        <translation>En vue : %1</translation>
    </message>
    <message>
        <location line="+39"/>
        <location line="+21"/>
        <source>%1: %2</source>
        <translation>%1 : %2</translation>
    </message>
    <message>
        <location line="-20"/>
        <source>%1 mm</source>
        <translation>%1 mm</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>
%1° %2 mm</source>
        <translation>
%1° %2 mm</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>
clock %1%2 s
±%3 ms</source>
        <translation>
horloge %1%2 s
±%3 ms</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>none yet</source>
        <translation>aucune pour l&apos;instant</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>&lt;font color=%1&gt;Floor not found: %2.&lt;/font&gt;</source>
        <translation>&lt;font color=%1&gt;Sol introuvable : %2.&lt;/font&gt;</translation>
    </message>
    <message>
        <source>the feet stayed on one spot or one line (%1 m across); the floor is left unlevelled</source>
        <translation>les pieds sont restés sur un point ou une ligne (%1 m de large) ; le sol n&apos;est pas mis à niveau</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>&lt;font color=%1&gt;Camera %2 moved while you calibrated: its frames from before were dropped and it is being placed anew. Keep walking where it and a neighbour both see you.&lt;/font&gt;</source>
        <translation>&lt;font color=%1&gt;La caméra %2 a bougé pendant la calibration : ses images d&apos;avant ont été écartées et elle est replacée. Continuez à marcher là où elle et une voisine vous voient toutes deux.&lt;/font&gt;</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>&lt;font color=%1&gt;Camera %2 moved while you calibrated: fix it in place, then finish and start the calibration again.&lt;/font&gt;</source>
        <translation>&lt;font color=%1&gt;La caméra %2 a bougé pendant la calibration : fixez-la, puis terminez et recommencez la calibration.&lt;/font&gt;</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>&lt;font color=%1&gt;All %2 cameras are well placed: you can finish the calibration.&lt;/font&gt;</source>
        <translation>&lt;font color=%1&gt;Les %2 caméras sont bien placées : vous pouvez terminer la calibration.&lt;/font&gt;</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Walk through the room so that several cameras see you at once; others may walk too. A first result comes after a few seconds.</source>
        <translation>Marchez dans la pièce de sorte que plusieurs caméras vous voient à la fois ; d&apos;autres personnes peuvent marcher aussi. Un premier résultat arrive après quelques secondes.</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>&lt;font color=%1&gt;%2 of %3 cameras are not good yet.&lt;/font&gt;</source>
        <translation>&lt;font color=%1&gt;%2 caméras sur %3 ne sont pas encore bonnes.&lt;/font&gt;</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <location filename="../forms/mainwindow.ui" line="+12"/>
        <location line="+27"/>
        <source>Halden</source>
        <translation>Halden</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Room set-up</source>
        <translation>Configurer la pièce</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Choose the cameras of the room: a room file, the cameras plugged into this computer, network cameras or a hub workspace.</source>
        <translation>Choisissez les caméras de la pièce : un fichier de pièce, les caméras branchées sur cet ordinateur, des caméras réseau ou un espace de travail du hub.</translation>
    </message>
    <message>
        <location line="+6"/>
        <location filename="../../app/mainwindow.cpp" line="+380"/>
        <source>Start calibration</source>
        <translation>Démarrer la calibration</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Save calibration...</source>
        <translation>Enregistrer la calibration...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Save the last calibration as a room calibration file.</source>
        <translation>Enregistrer la dernière calibration dans un fichier de calibration de pièce.</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>%p% of the next solve</source>
        <translation>%p% de la prochaine résolution</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Fusion status:</source>
        <translation>État de la fusion :</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Modules:</source>
        <translation>Modules :</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Skeletons</source>
        <translation>Squelettes</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Odometry</source>
        <translation>Odométrie</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Metrics</source>
        <translation>Mesures</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show each camera&apos;s frame rate, latency and detection figures in the view.</source>
        <translation>Afficher dans la vue la fréquence d&apos;images, la latence et les chiffres de détection de chaque caméra.</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Raw data</source>
        <translation>Données brutes</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show each camera&apos;s own skeletons beside the fused ones.</source>
        <translation>Afficher les squelettes propres à chaque caméra à côté des squelettes fusionnés.</translation>
    </message>
    <message>
        <location line="+36"/>
        <source>No room loaded yet</source>
        <translation>Aucune pièce chargée</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>&lt;ol style=&quot;margin-left:0px; -qt-list-indent:1&quot;&gt;&lt;li&gt;Open &lt;b&gt;Room set-up&lt;/b&gt; and choose where the cameras come from: &lt;b&gt;Search USB&lt;/b&gt; for the cameras plugged into this computer, a room file, network cameras or a hub workspace; then &lt;b&gt;Create&lt;/b&gt;.&lt;/li&gt;&lt;li&gt;Wait until the room has started: the 3D view shows the cameras.&lt;/li&gt;&lt;li&gt;Press &lt;b&gt;Start calibration&lt;/b&gt; and walk through the room, one person at a time, where several cameras see you.&lt;/li&gt;&lt;li&gt;When every camera reads &lt;i&gt;Good&lt;/i&gt;, press &lt;b&gt;Finish calibration&lt;/b&gt; and save the room file.&lt;/li&gt;&lt;/ol&gt;</source>
        <translation>&lt;ol style=&quot;margin-left:0px; -qt-list-indent:1&quot;&gt;&lt;li&gt;Ouvrez &lt;b&gt;Configurer la pièce&lt;/b&gt; et choisissez d&apos;où viennent les caméras : &lt;b&gt;Rechercher les caméras USB&lt;/b&gt; pour celles branchées sur cet ordinateur, un fichier de pièce, des caméras réseau ou un espace de travail du hub ; puis &lt;b&gt;Créer la pièce&lt;/b&gt;.&lt;/li&gt;&lt;li&gt;Attendez que la pièce ait démarré : la vue 3D montre les caméras.&lt;/li&gt;&lt;li&gt;Appuyez sur &lt;b&gt;Démarrer la calibration&lt;/b&gt; et marchez dans la pièce, une personne à la fois, là où plusieurs caméras vous voient.&lt;/li&gt;&lt;li&gt;Quand chaque caméra indique &lt;i&gt;Bonne&lt;/i&gt;, appuyez sur &lt;b&gt;Terminer la calibration&lt;/b&gt; et enregistrez le fichier de pièce.&lt;/li&gt;&lt;/ol&gt;</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Set up the room</source>
        <translation>Configurer la pièce</translation>
    </message>
    <message>
        <location line="+47"/>
        <source>Starting the room…</source>
        <translation>Démarrage de la pièce…</translation>
    </message>
    <message>
        <location filename="../../app/mainwindow.cpp" line="-323"/>
        <source>Not calibrated yet: each camera shows what it sees from where it stands, so one person appears once per camera. Start a calibration and walk through the room.</source>
        <translation>Pas encore calibrée : chaque caméra montre ce qu&apos;elle voit depuis sa place, si bien qu&apos;une personne apparaît une fois par caméra. Démarrez une calibration et marchez dans la pièce.</translation>
    </message>
    <message>
        <location line="+108"/>
        <source>Camera moved</source>
        <translation>Caméra déplacée</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Camera %1 no longer agrees with the others: since the calibration it seems to have turned by about %2°, and what it sees has shifted by about %3 mm where people walk. Fix it in place and calibrate the room again.</source>
        <translation>La caméra %1 ne concorde plus avec les autres : depuis la calibration, elle semble avoir tourné d&apos;environ %2°, et ce qu&apos;elle voit s&apos;est décalé d&apos;environ %3 mm là où les gens marchent. Fixez-la et calibrez de nouveau la pièce.</translation>
    </message>
    <message>
        <location line="+32"/>
        <source>camera %1 moved: calibrate again</source>
        <translation>caméra %1 déplacée : calibrez de nouveau</translation>
    </message>
    <message>
        <location line="+87"/>
        <source>Throw the calibration away?</source>
        <translation>Abandonner la calibration ?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>A calibration is under way. Closing Halden now throws away the walk so far; finish the calibration first to keep it. Close anyway?</source>
        <translation>Une calibration est en cours. Fermer Halden maintenant abandonne la marche faite jusqu&apos;ici ; terminez d&apos;abord la calibration pour la garder. Fermer quand même ?</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Halden closes once the hub has stored the calibration; close again to stop waiting.</source>
        <translation>Halden se fermera une fois la calibration enregistrée par le hub ; fermez de nouveau pour ne plus attendre.</translation>
    </message>
    <message>
        <location line="+62"/>
        <source>You must set up your room before calibrating it.</source>
        <translation>Vous devez configurer votre pièce avant de la calibrer.</translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Finishing...</source>
        <translation>Finalisation...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Starting...</source>
        <translation>Démarrage...</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Finish calibration</source>
        <translation>Terminer la calibration</translation>
    </message>
    <message>
        <location line="+62"/>
        <source>Save cameras that are not Good?</source>
        <translation>Enregistrer des caméras qui ne sont pas Bonnes ?</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Camera %1 does not read Good yet: its pose may be off by more than the fusion allows. Save the calibration anyway? Choose No to keep walking.</source>
        <translation>La caméra %1 n&apos;indique pas encore Bonne : sa pose peut s&apos;écarter de plus que la fusion ne le permet. Enregistrer la calibration quand même ? Choisissez Non pour continuer à marcher.</translation>
    </message>
    <message>
        <location line="+23"/>
        <source>No calibration yet: no solve was usable. Start again and walk where several cameras see you.</source>
        <translation>Pas encore de calibration : aucune résolution n&apos;était utilisable. Recommencez et marchez là où plusieurs caméras vous voient.</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Save room calibration</source>
        <translation>Enregistrer la calibration de la pièce</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Pyra Room Calibration files (*.json)</source>
        <translation>Fichiers de calibration de pièce Pyra (*.json)</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Saving was cancelled.</source>
        <translation>L&apos;enregistrement a été annulé.</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Replace file?</source>
        <translation>Remplacer le fichier ?</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>%1 already exists. Do you want to replace it?</source>
        <translation>%1 existe déjà. Voulez-vous le remplacer ?</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1 was kept as it was.</source>
        <translation>%1 a été laissé tel quel.</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>%1 could not be written: %2</source>
        <translation>%1 n&apos;a pas pu être écrit : %2</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Calibration saved to %1.</source>
        <translation>Calibration enregistrée dans %1.</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>The calibration is kept: use &quot;Save calibration...&quot; to save it.</source>
        <translation>La calibration est conservée : utilisez « Enregistrer la calibration... » pour l&apos;enregistrer.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Calibration not saved</source>
        <translation>Calibration non enregistrée</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Calibration not stored in the hub</source>
        <translation>Calibration non enregistrée dans le hub</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <location filename="../../app/calibration_panel.cpp" line="-232"/>
        <source>No data</source>
        <translation>Aucune donnée</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Needs frames</source>
        <translation>Manque d&apos;images</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Settling</source>
        <translation>En cours</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Moved</source>
        <translation>Déplacée</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Good</source>
        <translation>Bonne</translation>
    </message>
    <message>
        <location line="+18"/>
        <source>... and %1 more: point at a camera&apos;s state for its advice.</source>
        <translation>... et %1 de plus : pointez l&apos;état d&apos;une caméra pour voir son conseil.</translation>
    </message>
    <message>
        <location filename="../../app/calibration_model_menu.cpp" line="+18"/>
        <location filename="../../app/export_action.cpp" line="+58"/>
        <location line="+1"/>
        <source>Calibration</source>
        <translation>Calibration</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Refined model (level floor, depth bias, aligned clocks)</source>
        <translation>Modèle affiné (sol horizontal, biais de profondeur, horloges alignées)</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Classic model (poses only)</source>
        <translation>Modèle classique (poses seules)</translation>
    </message>
    <message>
        <location filename="../../app/export_action.cpp" line="-34"/>
        <source>Room calibration to export</source>
        <translation>Calibration de pièce à exporter</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Pyra Room Calibration files (*.json)</source>
        <translation>Fichiers de calibration de pièce Pyra (*.json)</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Export calibration as</source>
        <translation>Exporter la calibration sous</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>OpenCV FileStorage (*.yaml);;TOML camera tables (*.toml);;ROS 2 launch file (*.launch.xml);;Camera-to-room matrices (*.json)</source>
        <translation>OpenCV FileStorage (*.yaml);;Tables de caméras TOML (*.toml);;Fichier de lancement ROS 2 (*.launch.xml);;Matrices caméra-pièce (*.json)</translation>
    </message>
    <message>
        <location line="+5"/>
        <location line="+10"/>
        <source>Calibration not exported</source>
        <translation>Calibration non exportée</translation>
    </message>
    <message>
        <location line="-9"/>
        <source>%1: end the name with .yaml (OpenCV), .toml, .launch.xml (ROS 2) or .json (matrices) to choose the format.</source>
        <translation>%1 : terminez le nom par .yaml (OpenCV), .toml, .launch.xml (ROS 2) ou .json (matrices) pour choisir le format.</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Calibration exported</source>
        <translation>Calibration exportée</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 written (%2).</source>
        <translation>%1 écrit (%2).</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Export calibration...</source>
        <translation>Exporter la calibration...</translation>
    </message>
    <message>
        <location filename="../../app/recording_actions.cpp" line="+27"/>
        <source>Halden recordings (*.rec)</source>
        <translation>Enregistrements Halden (*.rec)</translation>
    </message>
    <message>
        <location line="+64"/>
        <location line="+1"/>
        <source>Recording</source>
        <translation>Enregistrement</translation>
    </message>
</context>
<context>
    <name>RecordingActions</name>
    <message>
        <location line="+8"/>
        <location line="+75"/>
        <source>Record walk...</source>
        <translation>Enregistrer une marche...</translation>
    </message>
    <message>
        <location line="-72"/>
        <source>Open recording...</source>
        <translation>Ouvrir un enregistrement...</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Play recordings as fast as possible</source>
        <translation>Lire les enregistrements au plus vite</translation>
    </message>
    <message>
        <location line="+34"/>
        <source>Nothing to record</source>
        <translation>Rien à enregistrer</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Set up a room and let it run first: a recording keeps what its cameras see while you walk.</source>
        <translation>Configurez d&apos;abord une pièce et laissez-la tourner : un enregistrement garde ce que ses caméras voient pendant que vous marchez.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Record walk into</source>
        <translation>Enregistrer la marche dans</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Recording not started</source>
        <translation>Enregistrement non démarré</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Stop recording</source>
        <translation>Arrêter l&apos;enregistrement</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Recording not saved</source>
        <translation>Enregistrement non sauvegardé</translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Recording saved</source>
        <translation>Enregistrement sauvegardé</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 captures written to %2. Open it with &quot;Open recording...&quot;, or calibrate it with halden-cli calibrate --replay.</source>
        <translation>%1 captures écrites dans %2. Ouvrez-le avec « Ouvrir un enregistrement... », ou calibrez-le avec halden-cli calibrate --replay.</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Calibration under way</source>
        <translation>Calibration en cours</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Finish the calibration of this room before playing a recording.</source>
        <translation>Terminez la calibration de cette pièce avant de lire un enregistrement.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Recording to play</source>
        <translation>Enregistrement à lire</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Recording not opened</source>
        <translation>Enregistrement non ouvert</translation>
    </message>
    <message>
        <location line="+25"/>
        <source>Recording ends early</source>
        <translation>L&apos;enregistrement s&apos;arrête trop tôt</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 is cut short or damaged (%2); everything before that point was played.</source>
        <translation>%1 est tronqué ou endommagé (%2) ; tout ce qui précède ce point a été lu.</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Recording played</source>
        <translation>Enregistrement lu</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 has played to its end. Finish the calibration to save it.</source>
        <translation>%1 a été lu jusqu&apos;au bout. Terminez la calibration pour l&apos;enregistrer.</translation>
    </message>
</context>
<context>
    <name>WSCreator</name>
    <message>
        <location filename="../forms/wscreator.ui" line="+9"/>
        <source>Halden - Room set-up</source>
        <translation>Halden - Configuration de la pièce</translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Room set-up</source>
        <translation>Configurer la pièce</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Choose where the cameras of this room come from, then create the room.</source>
        <translation>Choisissez d&apos;où viennent les caméras de cette pièce, puis créez la pièce.</translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Close</source>
        <translation>Fermer</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Back to the room view without changing anything.</source>
        <translation>Retour à la vue de la pièce sans rien changer.</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Room file</source>
        <translation>Fichier de pièce</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Open a room configuration or a calibration saved earlier. The fusion starts on its cameras straight away, with the capture settings on the right.</source>
        <translation>Ouvrir une configuration de pièce ou une calibration enregistrée plus tôt. La fusion démarre aussitôt sur ses caméras, avec les réglages de capture de droite.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Open a room file...</source>
        <translation>Ouvrir un fichier de pièce...</translation>
    </message>
    <message>
        <location line="+17"/>
        <source>USB</source>
        <translation>USB</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Use every camera plugged into this computer. Each one is opened here and shares its data with the fusion through memory.</source>
        <translation>Utiliser chaque caméra branchée sur cet ordinateur. Chacune est ouverte ici et partage ses données avec la fusion par la mémoire.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Search USB cameras</source>
        <translation>Rechercher les caméras USB</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Network</source>
        <translation>Réseau</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Add cameras that another computer publishes on the local network. The port must be even: the sender also uses the port above it.</source>
        <translation>Ajouter des caméras qu&apos;un autre ordinateur publie sur le réseau local. Le port doit être pair : l&apos;émetteur utilise aussi le port au-dessus.</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Serial number</source>
        <translation>Numéro de série</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>e.g. 41001</source>
        <translation>p. ex. 41001</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Address</source>
        <translation>Adresse</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>IP:port, e.g. 192.168.1.10:30000</source>
        <translation>IP:port, p. ex. 192.168.1.10:30000</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Address of the computer that publishes this camera, and its port. The port must be even: the sender also uses the port just above it.</source>
        <translation>Adresse de l&apos;ordinateur qui publie cette caméra, et son port. Le port doit être pair : l&apos;émetteur utilise aussi le port juste au-dessus.</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Add camera</source>
        <translation>Ajouter la caméra</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Clear list</source>
        <translation>Vider la liste</translation>
    </message>
    <message>
        <location line="+20"/>
        <source>Pyra Hub</source>
        <translation>Pyra Hub</translation>
    </message>
    <message>
        <location line="+16"/>
        <source>Change hub...</source>
        <translation>Changer de hub...</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>User name</source>
        <translation>Nom d&apos;utilisateur</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Password</source>
        <translation>Mot de passe</translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Sign in</source>
        <translation>Se connecter</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Cancel</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Stop waiting for the hub.</source>
        <translation>Ne plus attendre le hub.</translation>
    </message>
    <message>
        <location line="+18"/>
        <source>Workspace</source>
        <translation>Espace de travail</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Devices</source>
        <translation>Appareils</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Untick a device to leave its camera out of the room.</source>
        <translation>Décochez un appareil pour laisser sa caméra hors de la pièce.</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Take publishing cameras</source>
        <translation>Prendre les caméras qui publient</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Ask each ticked device for the port it publishes on.</source>
        <translation>Demander à chaque appareil coché le port sur lequel il publie.</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Take stored calibration</source>
        <translation>Prendre la calibration enregistrée</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Use the cameras and poses of the calibration kept in this workspace.</source>
        <translation>Utiliser les caméras et les poses de la calibration gardée dans cet espace de travail.</translation>
    </message>
    <message>
        <location line="+28"/>
        <source>Cameras in this room</source>
        <translation>Caméras de cette pièce</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>No cameras yet. Search USB cameras, add network cameras or take them from a hub workspace.</source>
        <translation>Pas encore de caméra. Recherchez les caméras USB, ajoutez des caméras réseau ou prenez-les d&apos;un espace de travail du hub.</translation>
    </message>
    <message>
        <location line="+9"/>
        <location filename="../../workspace/wscreator_hub.cpp" line="+266"/>
        <source>Camera</source>
        <translation>Caméra</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Reached through</source>
        <translation>Atteinte par</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Capture settings</source>
        <translation>Réglages de capture</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>BODY MODEL</source>
        <translation>MODÈLE DE CORPS</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Body tracking model: more accurate models need more computing time.</source>
        <translation>Modèle de suivi des corps : les modèles plus précis demandent plus de calcul.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Fast</source>
        <translation>Rapide</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Medium</source>
        <translation>Moyen</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Accurate</source>
        <translation>Précis</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>IMAGE FLIP</source>
        <translation>RETOURNEMENT DE L&apos;IMAGE</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Turn the image of cameras mounted upside down.</source>
        <translation>Retourner l&apos;image des caméras montées à l&apos;envers.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Off</source>
        <translation>Non</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>On</source>
        <translation>Oui</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Automatic</source>
        <translation>Automatique</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>DEPTH MODE</source>
        <translation>MODE DE PROFONDEUR</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Finer depth is less noisy and slower.</source>
        <translation>Une profondeur plus fine est moins bruitée et plus lente.</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Medium (3)</source>
        <translation>Moyen (3)</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Fine (4)</source>
        <translation>Fin (4)</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Finest (5)</source>
        <translation>Très fin (5)</translation>
    </message>
    <message>
        <location line="+5"/>
        <source>DETECTION CONFIDENCE</source>
        <translation>CONFIANCE DE DÉTECTION</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>People detected with less confidence than this are ignored.</source>
        <translation>Les personnes détectées avec une confiance plus faible sont ignorées.</translation>
    </message>
    <message>
        <location line="+6"/>
        <source>50</source>
        <translation>50</translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Create room</source>
        <translation>Créer la pièce</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Start the fusion on the cameras listed above.</source>
        <translation>Démarrer la fusion sur les caméras de la liste.</translation>
    </message>
    <message>
        <location filename="../../workspace/wscreator.cpp" line="+25"/>
        <source>There are no cameras to start with yet. Search for the cameras plugged into this computer over USB, add network cameras by serial number and address, or take them from a Pyra Hub workspace.</source>
        <translation>Il n&apos;y a pas encore de caméra avec laquelle démarrer. Recherchez les caméras branchées sur cet ordinateur en USB, ajoutez des caméras réseau par numéro de série et adresse, ou prenez-les d&apos;un espace de travail Pyra Hub.</translation>
    </message>
    <message>
        <location line="+57"/>
        <location filename="../../workspace/wscreator_hub.cpp" line="-136"/>
        <source>Choose a workspace</source>
        <translation>Choisissez un espace de travail</translation>
    </message>
    <message>
        <location line="+70"/>
        <location line="+40"/>
        <source>USB, this computer</source>
        <translation>USB, cet ordinateur</translation>
    </message>
    <message>
        <location line="-37"/>
        <source>SN%1 - %2</source>
        <translation>SN%1 - %2</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Running now</source>
        <translation>En marche</translation>
    </message>
    <message>
        <location line="+18"/>
        <source>Open a room or calibration file</source>
        <translation>Ouvrir un fichier de pièce ou de calibration</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Room or calibration files (*.json)</source>
        <translation>Fichiers de pièce ou de calibration (*.json)</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>No cameras found</source>
        <translation>Aucune caméra trouvée</translation>
    </message>
    <message>
        <location line="+1"/>
        <source>No camera found plugged on this computer. Please either plug one or use network cameras.</source>
        <translation>Aucune caméra branchée sur cet ordinateur. Branchez-en une ou utilisez des caméras réseau.</translation>
    </message>
    <message>
        <location line="+26"/>
        <source>Make sure to have an application running that send fusion data (like Body Relay).</source>
        <translation>Assurez-vous qu&apos;une application envoyant des données de fusion (comme Body Relay) est lancée.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The given serial number, IP address and/or port are invalid.</source>
        <translation>Le numéro de série, l&apos;adresse IP ou le port donnés ne sont pas valides.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The given serial number is invalid.</source>
        <translation>Le numéro de série donné n&apos;est pas valide.</translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The given IP address and/or port are invalid.</source>
        <translation>L&apos;adresse IP ou le port donnés ne sont pas valides.</translation>
    </message>
    <message>
        <location line="+24"/>
        <source>Network, %1:%2</source>
        <translation>Réseau, %1:%2</translation>
    </message>
    <message>
        <location line="+41"/>
        <location filename="../../workspace/wscreator_hub.cpp" line="+102"/>
        <location line="+73"/>
        <source>No valid cameras</source>
        <translation>Aucune caméra valide</translation>
    </message>
    <message>
        <location line="+45"/>
        <source>Opens in the folder used last: %1</source>
        <translation>S&apos;ouvre dans le dernier dossier utilisé : %1</translation>
    </message>
    <message>
        <location filename="../../workspace/wscreator_hub.cpp" line="-257"/>
        <source>The calibration was not stored in workspace %1: Halden stopped waiting for the hub.</source>
        <translation>La calibration n&apos;a pas été enregistrée dans l&apos;espace de travail %1 : Halden a cessé d&apos;attendre le hub.</translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Pyra Hub at %1</source>
        <translation>Pyra Hub à %1</translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Pyra Hub URL</source>
        <translation>URL du Pyra Hub</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Pyra Hub URL : </source>
        <translation>URL du Pyra Hub : </translation>
    </message>
    <message>
        <location line="+18"/>
        <source>Invalid credentials</source>
        <translation>Identifiants non valides</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Please fill your credentials before trying to connect to PYRA HUB.</source>
        <translation>Saisissez vos identifiants avant de vous connecter à PYRA HUB.</translation>
    </message>
    <message>
        <location line="+10"/>
        <location line="+7"/>
        <source>Connection error</source>
        <translation>Erreur de connexion</translation>
    </message>
    <message>
        <location line="-7"/>
        <source>Invalid Pyra Hub tenant address.</source>
        <translation>Adresse de locataire Pyra Hub non valide.</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Secure connection to PYRA HUB could not be established.</source>
        <translation>La connexion sécurisée à PYRA HUB n&apos;a pas pu être établie.</translation>
    </message>
    <message>
        <location line="+31"/>
        <source>No workspace in this account</source>
        <translation>Aucun espace de travail dans ce compte</translation>
    </message>
    <message>
        <location line="+42"/>
        <source>Host %1</source>
        <translation>Hôte %1</translation>
    </message>
    <message>
        <location line="+45"/>
        <source>Hub, not publishing</source>
        <translation>Hub, ne publie pas</translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Hub, %1:%2</source>
        <translation>Hub, %1:%2</translation>
    </message>
    <message>
        <location line="+6"/>
        <location line="+73"/>
        <source>No valid cameras are currently publishing data in this workspace.</source>
        <translation>Aucune caméra valide ne publie de données dans cet espace de travail pour l&apos;instant.</translation>
    </message>
    <message>
        <location line="-68"/>
        <location line="+47"/>
        <source>Fusion now running on these cameras</source>
        <translation>La fusion tourne maintenant sur ces caméras</translation>
    </message>
    <message>
        <location line="-46"/>
        <source> cameras are currently publishing data.</source>
        <translation> caméras publient des données en ce moment.</translation>
    </message>
    <message>
        <location line="+32"/>
        <source>Hub calibration, %1</source>
        <translation>Calibration du hub, %1</translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Invalid calibration</source>
        <translation>Calibration non valide</translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Invalid calibration in this workspace.</source>
        <translation>Calibration non valide dans cet espace de travail.</translation>
    </message>
    <message>
        <location line="+7"/>
        <source> cameras are registered in the workspace.</source>
        <translation> caméras sont enregistrées dans l&apos;espace de travail.</translation>
    </message>
    <message>
        <location line="+42"/>
        <source>The calibration could not be stored in workspace %1: an earlier one is still being stored.</source>
        <translation>La calibration n&apos;a pas pu être enregistrée dans l&apos;espace de travail %1 : une précédente est encore en cours d&apos;enregistrement.</translation>
    </message>
    <message>
        <location line="+12"/>
        <source>The calibration could not be stored in workspace %1: the hub refused it or did not answer.</source>
        <translation>La calibration n&apos;a pas pu être enregistrée dans l&apos;espace de travail %1 : le hub l&apos;a refusée ou n&apos;a pas répondu.</translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Calibration stored in workspace %1.</source>
        <translation>Calibration enregistrée dans l&apos;espace de travail %1.</translation>
    </message>
</context>
<context>
    <name>CalibrationAdvice</name>
    <message>
        <source>±%1° / %2 mm at 2σ, %3° / %4 mm needed</source>
        <translation>±%1° / %2 mm à 2σ, %3° / %4 mm requis</translation>
    </message>
    <message>
        <source>It moved during the calibration: its frames from before were dropped and it is being placed anew. Keep walking where it and a neighbour both see you.</source>
        <translation>Elle a bougé pendant la calibration : ses images d&apos;avant ont été écartées et elle est replacée. Continuez à marcher là où elle et une voisine vous voient toutes deux.</translation>
    </message>
    <message>
        <source>Not yet seen together with another camera: walk where it and a neighbour both see you.</source>
        <translation>Pas encore vue en même temps qu&apos;une autre caméra : marchez là où elle et une voisine vous voient toutes deux.</translation>
    </message>
    <message>
        <source>Keep walking where %1 and %2 both see you (%3 of %4 frames).</source>
        <translation>Continuez à marcher là où %1 et %2 vous voient toutes deux (%3 images sur %4).</translation>
    </message>
    <message>
        <source>It seems to have moved during the calibration: fix it in place and restart the calibration.</source>
        <translation>Elle semble avoir bougé pendant la calibration : fixez-la en place et recommencez la calibration.</translation>
    </message>
    <message>
        <source>It seems to have moved during the calibration (the first and second half of the walk put it %1° and %2 mm apart): fix it in place and restart the calibration.</source>
        <translation>Elle semble avoir bougé pendant la calibration (les deux moitiés de la marche la placent à %1° et %2 mm l&apos;une de l&apos;autre) : fixez-la en place et recommencez la calibration.</translation>
    </message>
    <message>
        <source>Its uncertainty is not known yet: keep walking where %1 and %2 both see you.</source>
        <translation>Son incertitude n&apos;est pas encore connue : continuez à marcher là où %1 et %2 vous voient toutes deux.</translation>
    </message>
    <message>
        <source>Well placed: ±%1° / %2 mm at 2σ.</source>
        <translation>Bien placée : ±%1° / %2 mm à 2σ.</translation>
    </message>
    <message>
        <source>%1. Walking longer will not bring it under %2 mm: this calibration model cannot tell the trackers&apos; pull toward the camera from where the camera stands.</source>
        <translation>%1. Marcher plus longtemps ne la fera pas passer sous %2 mm : ce modèle de calibration ne sait pas distinguer l&apos;attraction des suiveurs vers la caméra de l&apos;endroit où se tient la caméra.</translation>
    </message>
    <message>
        <source>Cover the left edge of %1&apos;s view, where %2 also sees you.</source>
        <translation>Couvrez le bord gauche de la vue de %1, là où %2 vous voit aussi.</translation>
    </message>
    <message>
        <source>Cover the right edge of %1&apos;s view, where %2 also sees you.</source>
        <translation>Couvrez le bord droit de la vue de %1, là où %2 vous voit aussi.</translation>
    </message>
    <message>
        <source>Cover the top edge of %1&apos;s view, where %2 also sees you.</source>
        <translation>Couvrez le bord haut de la vue de %1, là où %2 vous voit aussi.</translation>
    </message>
    <message>
        <source>Cover the bottom edge of %1&apos;s view, where %2 also sees you.</source>
        <translation>Couvrez le bord bas de la vue de %1, là où %2 vous voit aussi.</translation>
    </message>
    <message>
        <source>%1. Walk where %2 and %3 both see you, near and far, facing both.</source>
        <translation>%1. Marchez là où %2 et %3 vous voient toutes deux, de près et de loin, face à chacune.</translation>
    </message>
    <message>
        <source>nobody</source>
        <translation>personne</translation>
    </message>
    <message>
        <source>1 person, used</source>
        <translation>1 personne, utilisée</translation>
    </message>
    <message>
        <source>1 person, not paired yet</source>
        <translation>1 personne, pas encore appariée</translation>
    </message>
    <message>
        <source>%1 people, used</source>
        <translation>%1 personnes, utilisées</translation>
    </message>
    <message>
        <source>%1 people, not paired yet</source>
        <translation>%1 personnes, pas encore appariées</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1 : %2</translation>
    </message>
</context>
</TS>
